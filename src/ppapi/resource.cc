#include "ppapi/resource.h"

#include <utility>

#include "ppapi/browser.h"

namespace mpbp {

Resource& Resource::operator=(Resource&& other) noexcept {
  if (this != &other) {
    Reset();
    resource_ = std::exchange(other.resource_, 0);
  }
  return *this;
}

void Resource::Reset() {
  const PP_Resource resource = std::exchange(resource_, 0);
  if (resource != 0 && Browser().core) Browser().core->ReleaseResource(resource);
}

}  // namespace mpbp
