// One page's link: a channel to the engine, and the texts of both between it and the browser.
#ifndef MPBP_CONNECTOR_PAGELINK_H_
#define MPBP_CONNECTOR_PAGELINK_H_

#include <functional>
#include <memory>
#include <string>

#include "base/signal.h"
#include "connector/browserhttp.h"
#include "connector/browserwriter.h"
#include "connector/textpieces.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "plugin/mpbp/common/remotinghandler.h"

namespace mpbp {

// On the connector's thread. Nothing here calls out to a page: a text for it is queued, and what
// comes from it arrives through the loop.
class PageLink final : public ClientChannelDelegate, public HttpRequester, public SlotOwner {
 public:
  // Makes the channel for a page; null when its address is not served.
  using ChannelFactory =
      std::function<std::shared_ptr<ClientChannel>(ClientChannelDelegate*, const std::string& url)>;

  // Both are borrowed for the lifetime of the link.
  PageLink(LinkNumber number, BrowserWriter* writer, BrowserHttp* http);
  ~PageLink();

  // False when pages of `origin` are not served.
  [[nodiscard]] bool Open(const std::string& origin, const ChannelFactory& factory);
  // Starts the channel unless it runs.
  void Start();
  // A piece of a text of the page. What is not accepted is told to the page.
  void TakePiece(std::string piece, bool more);
  // False when so many pieces are not under way.
  [[nodiscard]] bool Acknowledge(size_t pieces);

  // ClientChannelDelegate.
  void MessageReceived(const std::string& text) override;
  bool StartHttpRequest(const HttpRequest& request,
                        std::unique_ptr<HttpResponse>& response) override;
  bool GetProxyForUrl(const std::string& text, std::string* reply) override;

  // HttpRequester.
  void OnHttpResponse(std::unique_ptr<HttpResponse> response) override;

 private:
  void SendText(const std::string& text);
  void Refuse(const char* reason);
  void SendToEngine(const std::string& text);

  const LinkNumber number_;
  BrowserWriter* const writer_;
  BrowserHttp* const http_;
  PieceSender sender_;
  PieceReceiver receiver_;
  const std::shared_ptr<RemotingHandler> remoting_handler_;
  std::shared_ptr<ClientChannel> channel_;  // null until Open
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_PAGELINK_H_
