// PPB_Var and PPB_Var(Deprecated).
#include <memory>
#include <utility>

#include "host/core.h"
#include "host/module_object.h"
#include "host/page.h"

namespace mpbp::host {
namespace {

void AddRef(PP_Var var) {
  if (Core* core = MainThreadCore("AddRef")) core->vars.AddRef(var);
}

void Release(PP_Var var) {
  if (Core* core = MainThreadCore("Release")) core->vars.Release(var);
}

PP_Var VarFromUtf8(const char* data, uint32_t length) {
  Core* core = MainThreadCore("VarFromUtf8");
  if (core == nullptr) return UndefinedVar();
  if (data == nullptr && length > 0) {
    core->misuse.Add("VarFromUtf8: no bytes");
    length = 0;
  }
  return core->vars.FromUtf8(length == 0 ? std::string_view() : std::string_view(data, length));
}

void CheckModule(PP_Module module, const char* where) {
  Core* core = AnyThreadCore();
  if (core == nullptr || module == core->module_id) return;
  core->misuse.Add(std::string(where) + ": module " + std::to_string(module) + " is not ours");
}

PP_Var VarFromUtf8WithModule(PP_Module module, const char* data, uint32_t length) {
  CheckModule(module, "VarFromUtf8");
  return VarFromUtf8(data, length);
}

const char* VarToUtf8(PP_Var var, uint32_t* length) {
  if (Core* core = MainThreadCore("VarToUtf8")) return core->vars.ToUtf8(var, length);
  if (length != nullptr) *length = 0;
  return nullptr;
}

// One call of the module on an object: checks what was passed, and hands an exception out.
class ObjectCall {
 public:
  ObjectCall(const char* where, PP_Var object, PP_Var* exception)
      : where_(where), core_(MainThreadCore(where)), exception_(exception) {
    if (core_ == nullptr) return;
    if (exception != nullptr && exception->type != PP_VARTYPE_UNDEFINED) {
      core_->misuse.Add(std::string(where) + ": the exception was not undefined before the call");
      return;
    }
    const Value value = core_->vars.ToValue(object, where);
    if (const auto* ref = std::get_if<ObjectRef>(&value)) {
      object_ = ref->get();  // keeps the memory, not the reference
    } else {
      core_->misuse.Add(std::string(where) + ": called on " + ToText(value));
      thrown = "object expected";
      Throw();
    }
  }
  ~ObjectCall() {
    if (object_) Throw();
  }
  ObjectCall(const ObjectCall&) = delete;
  ObjectCall& operator=(const ObjectCall&) = delete;

  // False: return at once.
  explicit operator bool() const { return object_ != nullptr; }
  ScriptObject& object() const { return *object_; }
  Core& core() const { return *core_; }
  Value Read(PP_Var var) const { return core_->vars.ToValue(var, where_); }
  Value ReadName(PP_Var var) const {
    Value name = Read(var);
    if (!std::holds_alternative<std::string>(name) && !std::holds_alternative<int32_t>(name)) {
      core_->misuse.Add(std::string(where_) + ": the name is " + ToText(name));
    }
    return name;
  }
  Values ReadArguments(uint32_t count, const PP_Var* list) const {
    Values values;
    for (uint32_t i = 0; list != nullptr && i < count; ++i) values.push_back(Read(list[i]));
    return values;
  }
  PP_Var Return(const Value& value) const {
    return thrown ? UndefinedVar() : core_->vars.FromValue(value);
  }

  Thrown thrown;

 private:
  void Throw() const {
    if (thrown && exception_ != nullptr) *exception_ = core_->vars.FromUtf8(*thrown);
  }

  const char* where_;
  Core* const core_;
  PP_Var* const exception_;
  std::shared_ptr<ScriptObject> object_;
};

bool HasProperty(PP_Var object, PP_Var name, PP_Var* exception) {
  ObjectCall call("HasProperty", object, exception);
  return call && call.object().HasProperty(call.ReadName(name), call.thrown);
}

bool HasMethod(PP_Var object, PP_Var name, PP_Var* exception) {
  ObjectCall call("HasMethod", object, exception);
  return call && call.object().HasMethod(call.ReadName(name), call.thrown);
}

PP_Var GetProperty(PP_Var object, PP_Var name, PP_Var* exception) {
  ObjectCall call("GetProperty", object, exception);
  if (!call) return UndefinedVar();
  const Value value = call.object().GetProperty(call.ReadName(name), call.thrown);
  return call.Return(value);
}

void GetAllPropertyNames(PP_Var object, uint32_t* count, PP_Var** names, PP_Var* exception) {
  ObjectCall call("GetAllPropertyNames", object, exception);
  if (!call || count == nullptr || names == nullptr) return;
  const std::vector<std::string> texts = call.object().PropertyNames(call.thrown);
  *count = 0;
  *names = nullptr;
  if (call.thrown || texts.empty()) return;
  auto* list = static_cast<PP_Var*>(
      call.core().memory.Alloc(static_cast<uint32_t>(texts.size() * sizeof(PP_Var))));
  if (list == nullptr) return;
  for (const std::string& text : texts) list[(*count)++] = call.core().vars.FromUtf8(text);
  *names = list;
}

void SetProperty(PP_Var object, PP_Var name, PP_Var value, PP_Var* exception) {
  ObjectCall call("SetProperty", object, exception);
  if (call) call.object().SetProperty(call.ReadName(name), call.Read(value), call.thrown);
}

void RemoveProperty(PP_Var object, PP_Var name, PP_Var* exception) {
  ObjectCall call("RemoveProperty", object, exception);
  if (call) call.object().RemoveProperty(call.ReadName(name), call.thrown);
}

PP_Var Call(PP_Var object, PP_Var method, uint32_t argc, PP_Var* argv, PP_Var* exception) {
  ObjectCall call("Call", object, exception);
  if (!call) return UndefinedVar();
  const Values arguments = call.ReadArguments(argc, argv);
  const Value value = call.object().Call(call.Read(method), arguments, call.thrown);
  return call.Return(value);
}

PP_Var Construct(PP_Var object, uint32_t argc, PP_Var* argv, PP_Var* exception) {
  ObjectCall call("Construct", object, exception);
  if (!call) return UndefinedVar();
  const Value value = call.object().Construct(call.ReadArguments(argc, argv), call.thrown);
  return call.Return(value);
}

bool IsInstanceOf(PP_Var var, const PPP_Class_Deprecated* object_class, void** data) {
  Core* core = MainThreadCore("IsInstanceOf");
  if (core == nullptr) return false;
  const Value value = core->vars.ToValue(var, "IsInstanceOf");
  const auto* ref = std::get_if<ObjectRef>(&value);
  const auto* object = ref != nullptr ? dynamic_cast<ModuleObject*>(ref->get().get()) : nullptr;
  if (object == nullptr || object->object_class() != object_class) return false;
  if (data != nullptr) *data = object->data();
  return true;
}

PP_Var MakeModuleObject(Core& core, PP_Instance instance, const PPP_Class_Deprecated* object_class,
                        void* data) {
  if (object_class == nullptr) {
    core.misuse.Add("CreateObject: no class");
    return UndefinedVar();
  }
  return core.vars.FromValue(
      ObjectRef(std::make_shared<ModuleObject>(core, instance, object_class, data)));
}

PP_Var CreateObject(PP_Instance instance, const PPP_Class_Deprecated* object_class, void* data) {
  Core* core = MainThreadCore("CreateObject");
  if (core == nullptr || !core->FindPage(instance, "CreateObject")) return UndefinedVar();
  return MakeModuleObject(*core, instance, object_class, data);
}

PP_Var CreateObjectWithModule(PP_Module module, const PPP_Class_Deprecated* object_class,
                              void* data) {
  Core* core = MainThreadCore("CreateObjectWithModule");
  if (core == nullptr) return UndefinedVar();
  CheckModule(module, "CreateObjectWithModule");
  return MakeModuleObject(*core, 0, object_class, data);
}

constexpr PPB_Var_1_1 kVar11 = {&AddRef, &Release, &VarFromUtf8, &VarToUtf8};
constexpr PPB_Var_1_0 kVar10 = {&AddRef, &Release, &VarFromUtf8WithModule, &VarToUtf8};
constexpr PPB_Var_Deprecated_0_3 kDeprecated = {
    &AddRef,    &Release,     &VarFromUtf8WithModule, &VarToUtf8,    &HasProperty,
    &HasMethod, &GetProperty, &GetAllPropertyNames,   &SetProperty,  &RemoveProperty,
    &Call,      &Construct,   &IsInstanceOf,          &CreateObject, &CreateObjectWithModule,
};

}  // namespace

const void* FindVarTable(const std::string& name) {
  if (name == PPB_VAR_INTERFACE_1_1) return &kVar11;
  if (name == PPB_VAR_INTERFACE_1_0) return &kVar10;
  if (name == PPB_VAR_DEPRECATED_INTERFACE_0_3) return &kDeprecated;
  return nullptr;
}

}  // namespace mpbp::host
