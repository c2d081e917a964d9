#include "host/module_object.h"

#include <memory>
#include <utility>

#include "host/core.h"
#include "host/scoped_var.h"

namespace mpbp::host {
namespace {

// The arguments of one call as vars.
class Arguments {
 public:
  Arguments(VarTable& vars, const Values& values) : vars_(vars) {
    for (const Value& value : values) list_.push_back(vars.FromValue(value));
  }
  ~Arguments() {
    for (const PP_Var var : list_) vars_.Release(var);
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  uint32_t count() const { return static_cast<uint32_t>(list_.size()); }
  // A copy for the module, null when there are none: what it does to the array is its own affair.
  PP_Var* data() {
    passed_ = list_;
    return passed_.empty() ? nullptr : passed_.data();
  }

 private:
  VarTable& vars_;
  std::vector<PP_Var> list_;
  std::vector<PP_Var> passed_;
};

}  // namespace

// The exception variable of one call.
class ModuleObject::Exception {
 public:
  Exception(VarTable& vars, Thrown& thrown) : vars_(vars), thrown_(thrown) {}
  Exception(const Exception&) = delete;
  Exception& operator=(const Exception&) = delete;
  ~Exception() {
    if (var_.type == PP_VARTYPE_UNDEFINED) return;
    const Value value = vars_.ToValue(var_, "exception");
    thrown_ = AsString(value).value_or("an exception that is " + ToText(value));
    vars_.Release(var_);
  }
  PP_Var* get() { return &var_; }

 private:
  VarTable& vars_;
  Thrown& thrown_;
  PP_Var var_ = UndefinedVar();
};

ModuleObject::ModuleObject(Core& core, PP_Instance instance,
                           const PPP_Class_Deprecated* object_class, void* data)
    : core_(core), instance_(instance), class_(object_class), data_(data) {
  core_.objects.insert(this);
}

ModuleObject::~ModuleObject() { Deallocate(); }

void ModuleObject::Deallocate() {
  const auto* object_class = std::exchange(class_, nullptr);
  if (object_class == nullptr) return;
  core_.objects.erase(this);
  if (object_class->Deallocate != nullptr) object_class->Deallocate(data_);
}

template <typename Member>
bool ModuleObject::Usable(Member function, const char* name, Thrown& thrown) {
  if (class_ == nullptr) {
    thrown = "the plug-in object is gone";
    return false;
  }
  if (class_->*function == nullptr) {
    core_.misuse.Add(std::string("the class has no ") + name);
    return false;
  }
  return true;
}

Value ModuleObject::Take(PP_Var var, const char* where) {
  Value value = core_.vars.ToValue(var, std::string("result of ") + where);
  core_.vars.Release(var);
  return value;
}

bool ModuleObject::Ask(bool (*PPP_Class_Deprecated::*question)(void*, PP_Var, PP_Var*),
                       const char* what, const Value& name, Thrown& thrown) {
  if (!Usable(question, what, thrown)) return false;
  const ScopedVar name_var(core_.vars, name);
  Exception exception(core_.vars, thrown);
  return (class_->*question)(data_, name_var.get(), exception.get());
}

bool ModuleObject::HasProperty(const Value& name, Thrown& thrown) {
  return Ask(&PPP_Class_Deprecated::HasProperty, "HasProperty", name, thrown);
}

bool ModuleObject::HasMethod(const Value& name, Thrown& thrown) {
  return Ask(&PPP_Class_Deprecated::HasMethod, "HasMethod", name, thrown);
}

Value ModuleObject::GetProperty(const Value& name, Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::GetProperty, "GetProperty", thrown)) return Undefined{};
  const ScopedVar name_var(core_.vars, name);
  Exception exception(core_.vars, thrown);
  return Take(class_->GetProperty(data_, name_var.get(), exception.get()), "GetProperty");
}

void ModuleObject::SetProperty(const Value& name, const Value& value, Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::SetProperty, "SetProperty", thrown)) return;
  const ScopedVar name_var(core_.vars, name);
  const ScopedVar value_var(core_.vars, value);
  Exception exception(core_.vars, thrown);
  class_->SetProperty(data_, name_var.get(), value_var.get(), exception.get());
}

void ModuleObject::RemoveProperty(const Value& name, Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::RemoveProperty, "RemoveProperty", thrown)) return;
  const ScopedVar name_var(core_.vars, name);
  Exception exception(core_.vars, thrown);
  class_->RemoveProperty(data_, name_var.get(), exception.get());
}

std::vector<std::string> ModuleObject::PropertyNames(Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::GetAllPropertyNames, "GetAllPropertyNames", thrown)) return {};
  uint32_t count = 0;
  PP_Var* names = nullptr;
  Exception exception(core_.vars, thrown);
  class_->GetAllPropertyNames(data_, &count, &names, exception.get());
  return TakeNames(count, names);
}

std::vector<std::string> ModuleObject::TakeNames(uint32_t count, PP_Var* names) {
  const auto size = core_.memory.SizeOf(names);
  if (count == 0 && names == nullptr) return {};
  if (!size || count == 0 || *size != count * sizeof(PP_Var)) {
    core_.misuse.Add("GetAllPropertyNames: " + std::to_string(count) + " names in " +
                     (size ? "a block of " + std::to_string(*size) + " bytes"
                           : std::string("a block that MemAlloc did not make")));
    if (size) core_.memory.Free(names);
    return {};
  }
  std::vector<std::string> texts;
  for (uint32_t i = 0; i < count; ++i) {
    const Value name = Take(names[i], "GetAllPropertyNames");
    const auto text = AsString(name);
    if (!text) core_.misuse.Add("GetAllPropertyNames: a name is " + ToText(name));
    texts.push_back(text.value_or(""));
  }
  core_.memory.Free(names);
  return texts;
}

Value ModuleObject::Call(const Value& method, const Values& arguments, Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::Call, "Call", thrown)) return Undefined{};
  const ScopedVar method_var(core_.vars, method);
  Arguments argument_vars(core_.vars, arguments);
  Exception exception(core_.vars, thrown);
  return Take(class_->Call(data_, method_var.get(), argument_vars.count(), argument_vars.data(),
                           exception.get()),
              "Call");
}

Value ModuleObject::Construct(const Values& arguments, Thrown& thrown) {
  if (!Usable(&PPP_Class_Deprecated::Construct, "Construct", thrown)) return Undefined{};
  Arguments argument_vars(core_.vars, arguments);
  Exception exception(core_.vars, thrown);
  return Take(
      class_->Construct(data_, argument_vars.count(), argument_vars.data(), exception.get()),
      "Construct");
}

}  // namespace mpbp::host
