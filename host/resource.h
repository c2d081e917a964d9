#ifndef MPBP_HOST_RESOURCE_H_
#define MPBP_HOST_RESOURCE_H_

namespace mpbp::host {

// What a module holds by a handle: a loader, a request, a response and the like.
class Resource {
 public:
  virtual ~Resource() = default;
  virtual const char* kind() const = 0;
  // The last reference went, or the instance did: what is under way ends, its callback comes later
  // with PP_ERROR_ABORTED.
  virtual void Abort() {}
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_RESOURCE_H_
