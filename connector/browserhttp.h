// HTTP requests of the engine that the extension's background makes.
//
// Texts on the service link, JSON:
//   out  {"request", "method", "url", "headers", "body"}   an id, header lines, base64
//   out  {"cancel"}                                         the answer to that id is wanted no more
//   in   {"response", "error", "url", "status", "statusText", "headers", "body"}
#ifndef MPBP_CONNECTOR_BROWSERHTTP_H_
#define MPBP_CONNECTOR_BROWSERHTTP_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "connector/browserwriter.h"
#include "connector/textpieces.h"
#include "httpmessages.h"

namespace mpbp {

// Gets the answers to what it has asked.
class HttpRequester {
 public:
  HttpRequester(const HttpRequester&) = delete;
  HttpRequester& operator=(const HttpRequester&) = delete;

  virtual void OnHttpResponse(std::unique_ptr<HttpResponse> response) = 0;

 protected:
  HttpRequester() = default;
  ~HttpRequester() = default;
};

// On the connector's thread.
class BrowserHttp {
 public:
  explicit BrowserHttp(BrowserWriter* writer);  // borrowed for the lifetime of this object
  BrowserHttp(const BrowserHttp&) = delete;
  BrowserHttp& operator=(const BrowserHttp&) = delete;

  // True takes `response` and hands it to `requester` when it is complete, never inside this call.
  // False, with an error line, leaves it with the caller. `requester` is borrowed until CancelAll.
  [[nodiscard]] bool Start(HttpRequester* requester, const HttpRequest& request,
                           std::unique_ptr<HttpResponse>& response);
  // No answer reaches `requester` from here on.
  void CancelAll(const HttpRequester* requester);

  // What comes on the service link. False when the browser's side is broken.
  [[nodiscard]] bool TakePiece(std::string piece, bool more);
  [[nodiscard]] bool Acknowledge(size_t pieces) { return sender_.Acknowledge(pieces); }

 private:
  struct Pending {
    HttpRequester* requester;
    std::unique_ptr<HttpResponse> response;
  };

  bool HandleResponse(const std::string& text);

  BrowserWriter* const writer_;
  PieceSender sender_;
  PieceReceiver receiver_;
  std::map<uint32_t, Pending> pending_;
  uint32_t last_id_ = 0;
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_BROWSERHTTP_H_
