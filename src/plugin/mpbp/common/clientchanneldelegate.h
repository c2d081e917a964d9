#ifndef MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNELDELEGATE_H_
#define MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNELDELEGATE_H_

#include <memory>
#include <string>

#include "httpmessages.h"

namespace mpbp {

// The plug-in instance, as the channel sees it.
class ClientChannelDelegate {
 public:
  ClientChannelDelegate(const ClientChannelDelegate&) = delete;
  ClientChannelDelegate& operator=(const ClientChannelDelegate&) = delete;

  // A text for the page. Anything may have happened to the channel when it returns.
  virtual void MessageReceived(const std::string& text) = 0;
  // Starts an HTTP request. True takes `response`, which comes back through SendHttpResponse when
  // it is complete, perhaps inside this call; false leaves it with the caller. Anything may have
  // happened to the channel when it returns.
  [[nodiscard]] virtual bool StartHttpRequest(const HttpRequest& request,
                                              std::unique_ptr<HttpResponse>& response) = 0;
  // Answers the engine's text: true with the complete reply.
  [[nodiscard]] virtual bool GetProxyForUrl(const std::string& text, std::string* reply) = 0;

 protected:
  ClientChannelDelegate() = default;
  ~ClientChannelDelegate() = default;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNELDELEGATE_H_
