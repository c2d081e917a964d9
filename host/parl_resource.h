#ifndef MPBP_HOST_PARL_RESOURCE_H_
#define MPBP_HOST_PARL_RESOURCE_H_

#include "abi/browser_abi.h"
#include "host/resource.h"

namespace mpbp::host {

// What version 1.0 of the private service hands out.
class ParlResource final : public Resource {
 public:
  explicit ParlResource(PP_Instance i) : instance(i) {}
  const char* kind() const override { return "private service"; }
  const PP_Instance instance;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_PARL_RESOURCE_H_
