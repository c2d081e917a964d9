#ifndef MPBP_HOST_URL_REQUEST_INFO_H_
#define MPBP_HOST_URL_REQUEST_INFO_H_

#include "host/http_transfer.h"
#include "host/resource.h"

namespace mpbp::host {

class UrlRequestInfo final : public Resource {
 public:
  const char* kind() const override { return "URL request"; }

  HttpRequest request;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_URL_REQUEST_INFO_H_
