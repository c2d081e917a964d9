#ifndef MPBP_PPAPI_URLRESPONSEINFO_H_
#define MPBP_PPAPI_URLRESPONSEINFO_H_

#include <cstdint>
#include <optional>
#include <string>

#include "ppapi/resource.h"
#include "ppapi/var.h"

namespace mpbp {

// What the browser says of a response; each part is nothing where the browser does not say it.
class UrlResponseInfo {
 public:
  UrlResponseInfo() = default;
  explicit UrlResponseInfo(PP_Resource info) : info_(info) {}

  std::optional<std::string> Url() const { return Property(PP_URLRESPONSEPROPERTY_URL).AsString(); }
  std::optional<std::string> StatusLine() const {
    return Property(PP_URLRESPONSEPROPERTY_STATUSLINE).AsString();
  }
  std::optional<int32_t> StatusCode() const {
    return Property(PP_URLRESPONSEPROPERTY_STATUSCODE).AsInt();
  }
  std::optional<std::string> Headers() const {
    return Property(PP_URLRESPONSEPROPERTY_HEADERS).AsString();
  }

 private:
  Var Property(PP_URLResponseProperty property) const;

  Resource info_;
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_URLRESPONSEINFO_H_
