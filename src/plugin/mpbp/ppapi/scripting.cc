// What the page's script sees of an instance: the properties "onmessage", "onerror" and "version",
// and the method "send".
#include <array>

#include "base/logging.h"
#include "plugin/mpbp/common/forgedtext.h"
#include "plugin/mpbp/common/version.h"
#include "plugin/mpbp/ppapi/plugin.h"

namespace mpbp {
namespace {

constexpr char kOnMessage[] = "onmessage";
constexpr char kOnError[] = "onerror";
constexpr char kVersion[] = "version";
constexpr char kSend[] = "send";

constexpr std::array kPropertyNames = {kOnMessage, kOnError, kVersion};

// Logs the text under the operation's name and throws it into the script.
void Throw(const char* operation, const std::string& text, Var* exception) {
  LOG(LS_ERROR) << operation << ": " << text;
  *exception = Var(text);
}

}  // namespace

bool PluginObject::HasMethod(const Var& name) const { return name.AsString() == kSend; }

bool PluginObject::HasProperty(const Var& name) const {
  const std::optional<std::string> text = name.AsString();
  return text == kOnMessage || text == kOnError || text == kVersion;
}

void PluginObject::GetAllPropertyNames(std::vector<Var>* names) const {
  for (const char* const name : kPropertyNames) names->emplace_back(name);
}

Var PluginObject::GetProperty(const Var& name, Var* exception) const {
  if (!channel_) {
    Throw("GetProperty", "no client channel", exception);
    return {};
  }
  const std::optional<std::string> text = name.AsString();
  if (!text) return {};
  LOG(LS_VERBOSE) << *text;
  if (text == kOnMessage) {
    LOG(LS_VERBOSE) << "Getting OnMessage callback property";
    return onmessage_;
  }
  if (text == kOnError) {
    LOG(LS_VERBOSE) << "Getting OnError callback property";
    return onerror_;
  }
  if (text == kVersion) {
    LOG(LS_VERBOSE) << "Getting version property";
    return Var(PluginVersion());
  }
  Throw("GetProperty", "unknown property " + *text, exception);
  return {};
}

void PluginObject::SetProperty(const Var& name, const Var& value, Var* exception) {
  const std::optional<std::string> text = name.AsString();
  if (!text) {
    Throw("SetProperty", "property name is not a string", exception);
    return;
  }
  LOG(LS_VERBOSE) << *text;
  if (text == kOnMessage) {
    SetOnMessage(value, exception);
  } else if (text == kOnError) {
    SetOnError(value, exception);
  } else {
    Throw("SetProperty", "cannot set property " + *text, exception);
  }
}

void PluginObject::SetOnMessage(const Var& value, Var* exception) {
  if (value.is_object()) {
    LOG(LS_VERBOSE) << "Setting OnMessage callback";
    onmessage_ = value;
    StartChannel();
  } else if (value.is_undefined() || value.is_null()) {
    LOG(LS_VERBOSE) << "Clearing OnMessage callback";
    onmessage_ = value;
  } else {
    Throw("SetProperty", "Passed unexpected type for onmessasge_callback", exception);
  }
}

void PluginObject::SetOnError(const Var& value, Var* exception) {
  if (value.is_object()) {
    LOG(LS_VERBOSE) << "Setting OnError callback";
    onerror_ = value;
  } else if (value.is_undefined() || value.is_null()) {
    LOG(LS_VERBOSE) << "Clearing OnError callback";
    onerror_ = value;
  } else {
    Throw("SetProperty", "Passed unexpected type for onerror_callback", exception);
  }
}

void PluginObject::StartChannel() {
  // Held: the page may destroy the instance from inside Start.
  const std::shared_ptr<ClientChannel> channel = channel_;
  if (!channel || channel->IsRunning()) return;
  if (channel->Start(std::make_unique<PluginMessageSocket>()) != LinkAttempt::UNDER_WAY) {
    LOG(LS_ERROR) << "Failed to start client channel.";
  }
  ShareDelivery();
  UpdateDelivery();
}

Var PluginObject::Call(const Var& name, std::span<const Var> arguments, Var* exception) {
  const auto refuse = [exception](const std::string& text) {
    Throw("Call", text, exception);
    return Var();
  };
  if (!channel_) return refuse("no client channel");
  const std::optional<std::string> method = name.AsString();
  if (!method) return refuse("method name is not a string");
  if (method != kSend) return refuse("Unknown method " + *method);
  if (arguments.size() != 1) return refuse("Invalid argument count for method send");
  const std::optional<std::string_view> text = arguments[0].AsStringView();
  if (!text) return refuse("Invalid argument type for method send");
  if (IsForgedPermissionResult(*text)) return refuse("Method call not allowed");
  // Held: the page may destroy the instance from inside Send.
  const std::shared_ptr<ClientChannel> channel = channel_;
  const bool sent = channel->Send(*text);
  UpdateDelivery();
  if (!sent) return refuse("Send returned false");
  return Var(int32_t{0});
}

}  // namespace mpbp
