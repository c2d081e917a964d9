#include "plugin/mpbp/ppapi/plugin.h"

#include <algorithm>
#include <optional>

#include "base/logging.h"
#include "plugin/allowlist.h"
#include "plugin/mpbp/common/proxylookup.h"
#include "plugin/mpbp/common/remotinghandler.h"
#include "plugin/mpbp/ppapi/browserprivateservice.h"
#include "plugin/mpbp/ppapi/instanceobject.h"
#include "plugin/mpbp/ppapi/promptdelivery.h"
#include "ppapi/browser.h"

namespace mpbp {
namespace {

// How often the channel's sockets and timers are served.
constexpr int32_t kPumpIntervalMs = 100;

// A text of the page as a line of the log can hold it.
std::string OneLine(std::string text) {
  constexpr size_t kLongest = 1000;
  if (text.size() > kLongest) text.replace(kLongest, std::string::npos, "...");
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
  return text;
}

}  // namespace

PluginObject::PluginObject(PP_Instance instance)
    : instance_(instance),
      stream_manager_(std::make_shared<StreamManager>(instance)),
      remoting_handler_(
          std::make_shared<RemotingHandler>(std::make_unique<BrowserPrivateService>(instance))) {
  stream_manager_->SignalResponse.Connect(this, &PluginObject::OnHttpResponse);
  remoting_handler_->SignalOutgoing.Connect(this, &PluginObject::SendToEngine);
  LOG(LS_VERBOSE) << "PluginObject";
}

PluginObject::~PluginObject() { Destroy(); }

bool PluginObject::Init() {
  LOG(LS_VERBOSE) << "Init";
  SetRequireSecureStandardHosts(true);
  const std::string url = PageUrl();
  if (destroyed_) return false;
  channel_ = ClientChannel::Create(this, url);
  if (!channel_) return false;
  pump_ = callbacks_.Repeating([weak = weak_from_this()](int32_t) {
    if (const std::shared_ptr<PluginObject> self = weak.lock()) self->OnPump();
  });
  SchedulePump();
  return !destroyed_;
}

void PluginObject::Destroy() {
  if (destroyed_) return;
  destroyed_ = true;
  LOG(LS_VERBOSE) << "~PluginObject";
  if (channel_) {
    if (channel_->IsRunning()) channel_->Stop();
    channel_->Detach();  // it may be on the stack and live a little longer
    channel_.reset();
  }
  prompt_delivery_.reset();
  callbacks_.CancelAll();
  remoting_handler_->End();  // it may be on the stack too
  remoting_handler_.reset();
  DisconnectAll();
  onmessage_ = Var();
  onerror_ = Var();
  stream_manager_->Clear();
}

std::string PluginObject::PageUrl() const {
  const PPB_Instance_Private_0_1* const instance_private = Browser().instance_private;
  if (!instance_private) return {};
  const Var window = Var::Adopt(instance_private->GetWindowObject(instance_));
  return window.GetProperty("location").GetProperty("href").AsString().value_or("");
}

void PluginObject::SchedulePump() {
  // Without the core table there is no module.
  static_cast<void>(CallOnMainThread(kPumpIntervalMs, pump_, 0));
}

void PluginObject::OnPump() {
  SchedulePump();
  if (!channel_) return;
  // Held: the page may stop the channel, and so let the thread go, from below.
  if (const std::shared_ptr<BrowserThread> thread = channel_->browser_thread()) thread->Pump();
  UpdateDelivery();
}

void PluginObject::ShareDelivery() {
  if (!channel_ || !channel_->IsRunning()) return;
  prompt_delivery_ = PromptDelivery::ShareIfWanted();
  if (prompt_delivery_) prompt_delivery_->Watch(channel_->browser_thread());
}

void PluginObject::UpdateDelivery() {
  if (prompt_delivery_) prompt_delivery_->Update();
}

Var PluginObject::GetInstanceObject() {
  LOG(LS_VERBOSE) << "GetInstanceObject";
  return CreateScriptObject(instance_, std::make_shared<InstanceObject>(weak_from_this()));
}

void PluginObject::MessageReceived(const std::string& text) {
  LOG(LS_VERBOSE) << "MessageReceived " << text;
  const std::shared_ptr<RemotingHandler> remoting_handler = remoting_handler_;
  if (!remoting_handler || remoting_handler->HandleMessage(text)) return;
  if (!onmessage_.is_object()) return;
  const std::optional<std::string> thrown = onmessage_.CallAsFunction(Var(text));
  // The page may have destroyed the instance: nothing of it may be touched from here on.
  if (thrown) LOG(LS_WARNING) << "The page's onmessage threw: " << OneLine(*thrown);
}

bool PluginObject::StartHttpRequest(const HttpRequest& request,
                                    std::unique_ptr<HttpResponse>& response) {
  return stream_manager_->MakeRequest(request, response);
}

bool PluginObject::GetProxyForUrl(const std::string& text, std::string* reply) {
  return AnswerProxyRequest(text, reply);
}

void PluginObject::SendToEngine(const std::string& text) {
  if (channel_) static_cast<void>(channel_->Send(text));  // logs its failure
}

void PluginObject::OnHttpResponse(std::unique_ptr<HttpResponse>& response) {
  if (channel_) channel_->SendHttpResponse(std::move(response));
  UpdateDelivery();
}

}  // namespace mpbp
