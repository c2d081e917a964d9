#ifndef MPBP_HOST_OBJECT_REF_H_
#define MPBP_HOST_OBJECT_REF_H_

#include <memory>

namespace mpbp::host {

class ScriptObject;

// One script reference to an object. The object learns when the last one goes; a call that is on
// the stack holds none, so that this may happen while the object is being called.
class ObjectRef {
 public:
  ObjectRef() = default;
  explicit ObjectRef(std::shared_ptr<ScriptObject> object);
  ObjectRef(const ObjectRef& other);
  ObjectRef(ObjectRef&& other) noexcept;
  ObjectRef& operator=(ObjectRef other) noexcept;
  ~ObjectRef();

  void Reset();
  const std::shared_ptr<ScriptObject>& get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  bool operator==(const ObjectRef& other) const { return object_ == other.object_; }

 private:
  std::shared_ptr<ScriptObject> object_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_OBJECT_REF_H_
