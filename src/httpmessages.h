// HTTP requests that the engine has the browser make: the records and their JSON.
#ifndef MPBP_HTTPMESSAGES_H_
#define MPBP_HTTPMESSAGES_H_

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "base/bytebuffer.h"

namespace mpbp {

struct HttpRequest {
  std::string verb;
  std::string proto;
  std::string host;
  int32_t port = 0;
  std::string path;
  std::string headers;  // lines
  std::string body;     // bytes
};

enum HttpError : int32_t {
  HTTP_OK = 0,
  HTTP_FAILED = 2,       // could not be opened, or reading the body failed
  HTTP_NOT_STARTED = 3,  // refused before anything was sent
};

// Filled while the request runs.
struct HttpResponse {
  int32_t error = HTTP_OK;
  uint32_t lastmodified = 0;           // seconds since 1970, 0 when not known
  std::optional<std::string> url;      // where the response finally came from
  std::optional<std::string> headers;  // status line, "\n", header lines
  ByteBuffer body;
  uint32_t request_id = 0;
  // The link that asked, of the channel's links; an answer for a link that is gone is dropped.
  // kAnyLink: whichever is there when the answer comes.
  static constexpr uint32_t kAnyLink = 0;
  uint32_t link = kAnyLink;
};

// proto://host:port followed by the path. The port is always written.
[[nodiscard]] std::string RequestUrl(const HttpRequest& request);

// Whether requests of this verb are made: GET and POST. An error line for others.
[[nodiscard]] bool IsSupportedVerb(const std::string& verb);

// Fills in `headers` and `lastmodified` from what a browser tells of a response: the header lines,
// the status line (made from the code when there is none).
void DescribeResponse(const std::string& header_lines, std::optional<std::string> status_line,
                      int32_t status_code, HttpResponse* response);

// Reads ["httprequest", id, {verb, proto, host, port, path}, headers, body]. True when everything
// is there and of the right type. *request_id is set whenever it can be read, else to 0. Headers
// and body may be missing; both are bytes as the text holds them.
[[nodiscard]] bool ReadHttpRequest(const Json::Value& message, HttpRequest* request,
                                   uint32_t* request_id);

// ["httpresponse", id, {error, lastmodified, url?}, headers?, body?]; the last two only when there
// are any, so that a body without headers stands at index 3.
[[nodiscard]] std::string WriteHttpResponse(const HttpResponse& response);

}  // namespace mpbp

#endif  // MPBP_HTTPMESSAGES_H_
