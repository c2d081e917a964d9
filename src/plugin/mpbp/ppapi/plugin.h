// The plug-in instance of one page.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_PLUGIN_H_
#define MPBP_PLUGIN_MPBP_PPAPI_PLUGIN_H_

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/signal.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "plugin/stream_manager.h"
#include "ppapi/callbacks.h"
#include "ppapi/var.h"

namespace mpbp {

class PromptDelivery;
class RemotingHandler;

// Owns everything a page uses: the channel to the engine, the HTTP proxy, the remoting handler and
// the page's callbacks. On the browser's main thread.
//
// Calls of the page, and of the browser, may destroy the instance while it is on the stack: Destroy
// takes everything down at once, and the object itself stays until the last caller that holds it
// returns.
class PluginObject final : public ClientChannelDelegate,
                           public SlotOwner,
                           public std::enable_shared_from_this<PluginObject> {
 public:
  explicit PluginObject(PP_Instance instance);
  ~PluginObject();

  // Makes the channel and begins to pump. False when the page is not served.
  [[nodiscard]] bool Init();
  // Ends everything; harmless when done before. Every operation is refused from then on.
  void Destroy();

  // A new script object for the page each time; undefined when the browser makes none.
  [[nodiscard]] Var GetInstanceObject();

  // Scripting. Where *exception is set the text was logged and is thrown into the page's script.
  bool HasMethod(const Var& name) const;
  bool HasProperty(const Var& name) const;
  Var GetProperty(const Var& name, Var* exception) const;
  void SetProperty(const Var& name, const Var& value, Var* exception);
  void GetAllPropertyNames(std::vector<Var>* names) const;
  Var Call(const Var& name, std::span<const Var> arguments, Var* exception);

  // ClientChannelDelegate.
  void MessageReceived(const std::string& text) override;
  [[nodiscard]] bool StartHttpRequest(const HttpRequest& request,
                                      std::unique_ptr<HttpResponse>& response) override;
  [[nodiscard]] bool GetProxyForUrl(const std::string& text, std::string* reply) override;

 private:
  std::string PageUrl() const;
  void SchedulePump();
  void OnPump();
  void SetOnMessage(const Var& value, Var* exception);
  void SetOnError(const Var& value, Var* exception);
  void StartChannel();
  void ShareDelivery();
  void UpdateDelivery();
  void SendToEngine(const std::string& text);
  void OnHttpResponse(std::unique_ptr<HttpResponse>& response);

  const PP_Instance instance_;
  const std::shared_ptr<StreamManager> stream_manager_;
  std::shared_ptr<ClientChannel> channel_;  // null until Init, and after Destroy
  Var onmessage_;
  Var onerror_;
  std::shared_ptr<RemotingHandler> remoting_handler_;  // null after Destroy
  std::shared_ptr<PromptDelivery> prompt_delivery_;    // null where only the pump serves the link
  CallbackFactory callbacks_;
  PP_CompletionCallback pump_{};
  bool destroyed_ = false;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_PLUGIN_H_
