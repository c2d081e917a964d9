#ifndef MPBP_PPAPI_RESOURCE_H_
#define MPBP_PPAPI_RESOURCE_H_

#include "abi/browser_abi.h"

namespace mpbp {

// One reference to a resource of the browser.
class Resource {
 public:
  Resource() = default;
  // Takes over the reference that the browser returned.
  explicit Resource(PP_Resource resource) : resource_(resource) {}
  Resource(Resource&& other) noexcept : resource_(other.resource_) { other.resource_ = 0; }
  Resource& operator=(Resource&& other) noexcept;
  ~Resource() { Reset(); }

  explicit operator bool() const { return resource_ != 0; }
  PP_Resource get() const { return resource_; }
  void Reset();

 private:
  PP_Resource resource_ = 0;
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_RESOURCE_H_
