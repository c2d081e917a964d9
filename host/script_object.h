#ifndef MPBP_HOST_SCRIPT_OBJECT_H_
#define MPBP_HOST_SCRIPT_OBJECT_H_

#include <memory>
#include <string>
#include <vector>

#include "host/value.h"

namespace mpbp::host {

// What can be done with an object. A function that throws sets `thrown` and returns undefined or
// false; `thrown` is empty when it is passed in. Any of them may run page or module code, which may
// drop the last script reference to this very object: the caller keeps a shared_ptr meanwhile.
class ScriptObject : public std::enable_shared_from_this<ScriptObject> {
 public:
  ScriptObject() = default;
  ScriptObject(const ScriptObject&) = delete;
  ScriptObject& operator=(const ScriptObject&) = delete;
  virtual ~ScriptObject() = default;

  virtual bool HasProperty(const Value& name, Thrown& thrown) = 0;
  virtual bool HasMethod(const Value& name, Thrown& thrown) = 0;
  virtual Value GetProperty(const Value& name, Thrown& thrown) = 0;
  virtual void SetProperty(const Value& name, const Value& value, Thrown& thrown) = 0;
  virtual void RemoveProperty(const Value& name, Thrown& thrown) = 0;
  virtual std::vector<std::string> PropertyNames(Thrown& thrown) = 0;
  // Undefined as `method` calls the object itself; null throws.
  virtual Value Call(const Value& method, const Values& arguments, Thrown& thrown) = 0;
  virtual Value Construct(const Values& arguments, Thrown& thrown) = 0;

 protected:
  friend class ObjectRef;
  virtual void OnUnreferenced() {}

 private:
  int references_ = 0;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_SCRIPT_OBJECT_H_
