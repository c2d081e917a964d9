// The script object of a plug-in instance: hands everything on to the instance, while there is one.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_INSTANCEOBJECT_H_
#define MPBP_PLUGIN_MPBP_PPAPI_INSTANCEOBJECT_H_

#include <memory>
#include <span>
#include <vector>

#include "plugin/mpbp/ppapi/plugin.h"
#include "plugin/mpbp/ppapi/scriptableobject.h"

namespace mpbp {

// A script may keep the object when the instance is gone: it then has no property and no method,
// and whatever reads, sets or calls one gets "no client channel" thrown.
class InstanceObject : public ScriptableObject {
 public:
  explicit InstanceObject(std::weak_ptr<PluginObject> instance) : instance_(std::move(instance)) {}

  bool HasProperty(const Var& name, Var*) override {
    const auto instance = instance_.lock();
    return instance && instance->HasProperty(name);
  }
  bool HasMethod(const Var& name, Var*) override {
    const auto instance = instance_.lock();
    return instance && instance->HasMethod(name);
  }
  Var GetProperty(const Var& name, Var* exception) override {
    const auto instance = instance_.lock();
    return instance ? instance->GetProperty(name, exception) : Gone(exception);
  }
  void GetAllPropertyNames(std::vector<Var>* names, Var*) override {
    if (const auto instance = instance_.lock()) instance->GetAllPropertyNames(names);
  }
  void SetProperty(const Var& name, const Var& value, Var* exception) override {
    if (const auto instance = instance_.lock()) {
      instance->SetProperty(name, value, exception);
    } else {
      Gone(exception);
    }
  }
  Var Call(const Var& method, std::span<const Var> arguments, Var* exception) override {
    const auto instance = instance_.lock();
    return instance ? instance->Call(method, arguments, exception) : Gone(exception);
  }

 private:
  static Var Gone(Var* exception) {
    *exception = Var("no client channel");
    return {};
  }

  const std::weak_ptr<PluginObject> instance_;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_INSTANCEOBJECT_H_
