// The routing of a channel: which texts are relayed, and which are acted on here.
#include <algorithm>
#include <string_view>

#include "base/logging.h"
#include "base/stringutils.h"
#include "base/timeutils.h"
#include "engineprocesses.h"
#include "jsonscan.h"
#include "jsontext.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "plugin/pluginutils.h"

namespace mpbp {
namespace {

// Page handling that takes longer is reported to the engine.
constexpr int32_t kSlowHandlingMs = 1000;

// What a page may pile up for an engine that does not take it.
constexpr size_t kMaxWaitingBytes = size_t{256} << 20;

// Engine texts are told apart by these words, quotes included, wherever they stand: the channel
// parses nothing that it only relays.
constexpr std::string_view kAliveWord = "\"qw\"";
constexpr std::string_view kHttpRequestWord = "\"httprequest\"";
constexpr std::string_view kGetProxyWord = "\"getproxyforurl\"";

// What pages say to the plug-in itself.
constexpr std::string_view kKillWord = "kill";
constexpr std::string_view kUploadLogWord = "uploadbrowserpluginlog";

bool Contains(std::string_view text, std::string_view word) {
  return FindWord(text, word) != std::string_view::npos;
}

std::string SlowHandlingComment(int32_t elapsed_ms) {
  Json::Value message(Json::arrayValue);
  message.append("comment");
  message.append("JS layer took " + std::to_string(elapsed_ms) + "ms to handle message.");
  return WriteJson(message);
}

}  // namespace

bool ClientChannel::Send(std::string_view text) {
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  return PreRoute(text) || SendToEngine(text);
}

bool ClientChannel::PreRoute(std::string_view text) {
  if (!MayBeNamed(text, {kKillWord, kUploadLogWord})) return false;
  const std::optional<Json::Value> message = ParseJson(text);
  if (!message) return false;
  const std::optional<std::string> kind = AsString(ElementAt(*message, 0));
  if (kind == kKillWord) return HandleKill(*message);
  if (kind == kUploadLogWord) return HandleUploadBrowserPluginLog(*message);
  return false;
}

bool ClientChannel::SendToEngine(std::string_view text) {
  if (!IsRunning()) {
    LOG(LS_ERROR) << this
                  << ": Called ClientChannel::Send() on a client channel which was not running.";
    return false;
  }
  if (given_up_) {
    LOG(LS_ERROR) << this << ": The link was given up: refusing a text.";
    return false;
  }
  if (text.size() > kMaxWaitingBytes - std::min(kMaxWaitingBytes, WaitingBytes())) {
    LOG(LS_ERROR) << this << ": " << WaitingBytes() << " bytes wait for MurmelParlPlugin: refusing "
                  << text.size() << " more.";
    return false;
  }
  // What was queued before must go first.
  if (state_ < ChannelState::AUTHORIZED) {
    pending_sends_.emplace_back(text);
    pending_bytes_ += text.size();
    return true;
  }
  return WriteToEngine(text);
}

size_t ClientChannel::WaitingBytes() const { return pending_bytes_ + socket_->unsent_bytes(); }

bool ClientChannel::WriteToEngine(std::string_view text) {
  if (!socket_->Send(text)) {
    LOG(LS_ERROR) << this << ": Send failed: " << RedactMessage(text);
    return false;
  }
  LOG(LS_INFO) << this << ": C->F: " << RedactMessage(text);
  return true;
}

void ClientChannel::OnSocketMessage(MessageSocket* socket, const std::string& text) {
  if (!IsOurSocket(socket)) return;
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  LOG(LS_INFO) << this << ": F->C: " << text;
  if (state_ == ChannelState::AUTHORIZED && Contains(text, kAliveWord)) {
    Enter(ChannelEvent::ENGINE_SPOKE, "the engine spoke");
    restart_tried_ = false;
  }
  if (Contains(text, kHttpRequestWord)) {
    HandleHttpRequest(text);
  } else if (Contains(text, kGetProxyWord)) {
    HandleGetProxyForUrl(text);
  } else {
    RelayToPage(text);
  }
}

void ClientChannel::RelayToPage(const std::string& text) {
  const uint32_t run = run_;
  const uint32_t start = Time();
  Deliver(text);
  const int32_t elapsed = TimeDiff(Time(), start);
  if (elapsed > kSlowHandlingMs && !HasEnded(run)) {
    static_cast<void>(Send(SlowHandlingComment(elapsed)));  // logs its failure
  }
}

bool ClientChannel::HandleKill(const Json::Value& message) {
  const Json::Value& force = ElementAt(message, 1);
  if (!force.isBool()) {
    LOG(LS_ERROR) << this
                  << ": Ignoring malformed 'kill' request (required boolean 'force' paramter)";
    return false;
  }
  LOG(LS_VERBOSE) << this << ": Received kill request, force: " << force.asBool();
  if (IsRunning()) {
    LOG(LS_WARNING) << this
                    << ": Kill requested on a running client channel. Stopping the channel.";
    Stop();
    Deliver(kDeadText);
  }
  LOG(LS_INFO) << this << ": Killing quern processes.";
  LogEngineProcesses();
  const int killed = KillEngineProcesses(false, force.asBool());
  ForgetEngineLaunch();
  LOG(LS_INFO) << this << ": Attempting to kill " << killed << " quern process(es)";
  Deliver(kKilledText);
  LogEngineProcesses();
  if (killed > 0) restart_tried_ = false;
  return true;
}

void ClientChannel::HandleHttpRequest(const std::string& text) {
  std::string errors;
  const std::optional<Json::Value> message = ParseJson(text, &errors);
  if (!message || !message->isArray()) {
    LOG(LS_ERROR) << this << ": Malformed 'httprequest' from the engine, no JSON array: " << text
                  << " " << errors;
    return;
  }
  HttpRequest request;
  auto response = std::make_unique<HttpResponse>();
  response->link = link_;
  if (!ReadHttpRequest(*message, &request, &response->request_id)) {
    LOG(LS_ERROR) << this << ": Malformed 'httprequest' from the engine: " << text;
    response->error = HTTP_NOT_STARTED;
    SendHttpResponse(std::move(response));
    return;
  }
  StartHttpRequest(request, std::move(response));
}

void ClientChannel::StartHttpRequest(const HttpRequest& request,
                                     std::unique_ptr<HttpResponse> response) {
  if (delegate_ && delegate_->StartHttpRequest(request, response)) return;
  response->error = HTTP_NOT_STARTED;
  SendHttpResponse(std::move(response));
}

void ClientChannel::SendHttpResponse(std::unique_ptr<HttpResponse> response) {
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  if (!IsRunning() || (response->link != HttpResponse::kAnyLink && response->link != link_)) {
    LOG(LS_INFO) << this << ": Dropping the answer to HTTP request " << response->request_id
                 << ": the link that asked is gone.";
    return;
  }
  if (response->body.Length() > 0) {
    LOG(LS_INFO) << this << ": HttpResponse body.data "
                 << RedactMessage({response->body.Data(), response->body.Length()});
  }
  static_cast<void>(SendToEngine(WriteHttpResponse(*response)));  // logs its failure
}

void ClientChannel::HandleGetProxyForUrl(const std::string& text) {
  std::string reply;
  if (delegate_ && delegate_->GetProxyForUrl(text, &reply)) {
    static_cast<void>(Send(reply));  // logs its failure
  } else {
    LOG(LS_ERROR) << this << ": Failed getting proxy settings: " << text;
  }
}

}  // namespace mpbp
