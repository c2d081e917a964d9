#ifndef MPBP_HOST_MODULE_OBJECT_H_
#define MPBP_HOST_MODULE_OBJECT_H_

#include <string>
#include <vector>

#include "abi/browser_abi.h"
#include "host/script_object.h"

namespace mpbp::host {

struct Core;

// An object whose behaviour the module implements. The functions go straight to the module's class;
// once the object was deallocated they throw.
class ModuleObject final : public ScriptObject {
 public:
  // `object_class` and `data` are the module's, good until Deallocate.
  ModuleObject(Core& core, PP_Instance instance, const PPP_Class_Deprecated* object_class,
               void* data);
  ~ModuleObject() override;

  bool HasProperty(const Value& name, Thrown& thrown) override;
  bool HasMethod(const Value& name, Thrown& thrown) override;
  Value GetProperty(const Value& name, Thrown& thrown) override;
  void SetProperty(const Value& name, const Value& value, Thrown& thrown) override;
  void RemoveProperty(const Value& name, Thrown& thrown) override;
  std::vector<std::string> PropertyNames(Thrown& thrown) override;
  Value Call(const Value& method, const Values& arguments, Thrown& thrown) override;
  Value Construct(const Values& arguments, Thrown& thrown) override;

  // Tells the module that its object is no longer wanted; the first call counts. May run while a
  // call of this object is on the stack, as it does in a browser.
  void Deallocate();

  PP_Instance instance() const { return instance_; }
  const PPP_Class_Deprecated* object_class() const { return class_; }
  void* data() const { return data_; }

 private:
  class Exception;

  void OnUnreferenced() override { Deallocate(); }
  // `function` is a member of PPP_Class_Deprecated.
  template <typename Member>
  bool Usable(Member function, const char* name, Thrown& thrown);
  bool Ask(bool (*PPP_Class_Deprecated::*question)(void*, PP_Var, PP_Var*), const char* what,
           const Value& name, Thrown& thrown);
  // Takes over the reference that comes with a result.
  Value Take(PP_Var var, const char* where);
  std::vector<std::string> TakeNames(uint32_t count, PP_Var* names);

  Core& core_;
  const PP_Instance instance_;
  const PPP_Class_Deprecated* class_;  // null once deallocated
  void* const data_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_MODULE_OBJECT_H_
