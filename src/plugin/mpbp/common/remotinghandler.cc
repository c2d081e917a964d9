#include "plugin/mpbp/common/remotinghandler.h"

#include <charconv>
#include <optional>

#include "base/logging.h"
#include "jsonscan.h"
#include "jsontext.h"

namespace mpbp {
namespace {

constexpr std::string_view kRequestPermission = "mpbp-request-permission";
constexpr std::string_view kStartRemoting = "mpbp-start-remoting";
constexpr std::string_view kStopRemoting = "mpbp-stop-remoting";

constexpr int32_t kGranted = 1;
constexpr int32_t kStarted = 0;
constexpr int32_t kLastPermissionType = 2;

enum RemotingEvent : int32_t { REMOTING_ENDED = 0, REMOTING_ERROR = 1 };

// An integer, or a text that holds an integer and nothing else.
template <typename Integer>
std::optional<Integer> ReadInteger(const Json::Value& value) {
  if constexpr (std::is_signed_v<Integer>) {
    if (value.isInt()) return value.asInt();
  } else {
    if (value.isUInt()) return value.asUInt();
  }
  const std::optional<std::string> text = AsString(value);
  if (!text) return std::nullopt;
  Integer number = 0;
  const char* const end = text->data() + text->size();
  const auto [stopped, error] = std::from_chars(text->data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

}  // namespace

RemotingHandler::RemotingHandler(std::unique_ptr<PrivateService> service)
    : service_(std::move(service)) {}

PrivateService::Done RemotingHandler::Bind(
    std::function<void(RemotingHandler&, int32_t)> function) {
  return [weak = weak_from_this(), function = std::move(function)](int32_t result) {
    if (const std::shared_ptr<RemotingHandler> self = weak.lock()) function(*self, result);
  };
}

bool RemotingHandler::HandleMessage(const std::string& text) {
  // Most texts are neither ours nor broken, and are told apart without parsing them.
  if (!MayBeNamed(text, {kRequestPermission, kStartRemoting, kStopRemoting}) && IsPlainJson(text)) {
    return false;
  }
  std::string errors;
  const std::optional<Json::Value> message = ParseJson(text, &errors);
  if (!message) {
    LOG(LS_ERROR) << "HandleMessage couldn't "
                  << "parse JSON (" << text << "), error is : " << errors;
    return false;
  }
  const std::optional<std::string> name = AsString(ElementAt(*message, 0));
  if (name == kRequestPermission) {
    RequestPermission(*message);
  } else if (name == kStartRemoting) {
    StartRemoting(*message);
  } else if (name == kStopRemoting) {
    StopRemoting(*message);
  } else {
    return false;
  }
  return true;
}

void RemotingHandler::RequestPermission(const Json::Value& message) {
  const std::optional<std::string> id = AsString(ElementAt(message, 1));
  const std::optional<int32_t> type = ReadInteger<int32_t>(ElementAt(message, 2));
  const std::optional<uint32_t> tag = ReadInteger<uint32_t>(ElementAt(message, 3));
  if (!id || !type || !tag) {
    LOG(LS_ERROR) << "Invalid message. Failed to parse arguments: " << WriteJson(message);
    return;
  }
  if (*type < 0 || *type > kLastPermissionType) {
    LOG(LS_ERROR) << "Invalid message. Invalid permission type: " << WriteJson(message);
    return;
  }
  const Permission permission{*id, *type, *tag};
  const int32_t result = service_->RequestPermission(
      permission.type, Bind([permission](RemotingHandler& self, int32_t answer) {
        self.OnPermission(permission, answer);
      }));
  if (result == PrivateService::kPending) return;
  LOG(LS_ERROR) << "RequestPermission failed. "
                << "message " << WriteJson(message) << ", error " << result;
  SendPermissionResult(permission, false);
}

void RemotingHandler::OnPermission(const Permission& permission, int32_t result) {
  if (result < 0) {
    LOG(LS_ERROR) << "Permission request failed. "
                  << "permission_type " << permission.type << ", error " << result;
  }
  SendPermissionResult(permission, result == kGranted);
}

void RemotingHandler::SendPermissionResult(const Permission& permission, bool granted) {
  Json::Value answer(Json::arrayValue);
  answer.append("mpbp-request-permission-result");
  answer.append(permission.type);
  answer.append(permission.id);
  answer.append(permission.tag);
  answer.append(granted);
  SignalOutgoing(WriteJson(answer));
}

void RemotingHandler::StartRemoting(const Json::Value& message) {
  const std::optional<std::string> id = AsString(ElementAt(message, 1));
  if (!id) {
    LOG(LS_ERROR) << "Invalid message. Failed to parse arguments: " << WriteJson(message);
    return;
  }
  const int32_t result = service_->StartRemoting(
      Bind(&RemotingHandler::OnRemotingEvent),
      Bind([id = *id](RemotingHandler& self, int32_t answer) { self.OnStarted(id, answer); }));
  if (result == PrivateService::kPending) return;
  LOG(LS_ERROR) << "StartRemoting failed. "
                << "message " << WriteJson(message) << ", error " << result;
  SendTerminateEvent(*id);
}

void RemotingHandler::OnStarted(const std::string& id, int32_t result) {
  if (result == kStarted) {
    remoting_id_ = id;
    return;
  }
  LOG(LS_ERROR) << "StartRemoting failed. Error " << result;
  if (!id.empty()) SendTerminateEvent(id);
}

void RemotingHandler::OnRemotingEvent(int32_t event) {
  if (event == REMOTING_ERROR) {
    LOG(LS_ERROR) << "Received error event. Sending terminate event.";
  } else if (event != REMOTING_ENDED) {
    LOG(LS_ERROR) << "Unknown event " << event;
    return;
  }
  if (!remoting_id_.empty()) SendTerminateEvent(remoting_id_);
}

void RemotingHandler::StopRemoting(const Json::Value& message) {
  if (!AsString(ElementAt(message, 1))) {
    LOG(LS_ERROR) << "Invalid message. Failed to parse arguments: " << WriteJson(message);
    return;
  }
  remoting_id_.clear();
  // Written whenever it completes, success included.
  const int32_t result = service_->StopRemoting(
      [](int32_t answer) { LOG(LS_WARNING) << "StopRemoting failed. Error " << answer; });
  if (result == PrivateService::kPending) return;
  LOG(LS_ERROR) << "StopRemoting failed. "
                << "message " << WriteJson(message) << ", error " << result;
}

void RemotingHandler::SendTerminateEvent(const std::string& id) {
  Json::Value event(Json::arrayValue);
  event.append("mpbp-terminate-remoting-event");
  event.append("");
  event.append(id);
  SignalOutgoing(WriteJson(event));
}

}  // namespace mpbp
