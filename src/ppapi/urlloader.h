// The browser's URL loader: the tables, with owning references.
#ifndef MPBP_PPAPI_URLLOADER_H_
#define MPBP_PPAPI_URLLOADER_H_

#include <cstdint>
#include <span>
#include <string>

#include "ppapi/resource.h"
#include "ppapi/urlresponseinfo.h"

namespace mpbp {

struct UrlRequest {
  std::string url;
  std::string method;
  std::string headers;  // lines
  std::string body;     // bytes; nothing is sent when empty
};

// One request. The results are the browser's codes; PP_OK_COMPLETIONPENDING says that the callback
// will run, or has run inside the call.
class UrlLoader {
 public:
  explicit UrlLoader(PP_Instance instance);
  UrlLoader(const UrlLoader&) = delete;
  UrlLoader& operator=(const UrlLoader&) = delete;
  ~UrlLoader() { Close(); }

  // Opens the request with access to every origin.
  [[nodiscard]] int32_t Open(const UrlRequest& request, const PP_CompletionCallback& callback);
  // Completes with the number of bytes read, 0 at the end. `buffer` is borrowed until then.
  [[nodiscard]] int32_t Read(std::span<char> buffer, const PP_CompletionCallback& callback);
  [[nodiscard]] UrlResponseInfo ResponseInfo() const;
  // Ends the request; the browser touches no buffer after that. Also from inside one of the calls
  // above, which then goes no further. Closing twice is harmless.
  void Close();

 private:
  const PP_Instance instance_;
  Resource loader_;
  bool closed_ = false;
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_URLLOADER_H_
