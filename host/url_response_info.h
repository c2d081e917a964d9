#ifndef MPBP_HOST_URL_RESPONSE_INFO_H_
#define MPBP_HOST_URL_RESPONSE_INFO_H_

#include <utility>

#include "host/http_transfer.h"
#include "host/resource.h"

namespace mpbp::host {

class UrlResponseInfo final : public Resource {
 public:
  explicit UrlResponseInfo(HttpResponse r) : response(std::move(r)) {}
  const char* kind() const override { return "URL response"; }

  const HttpResponse response;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_URL_RESPONSE_INFO_H_
