#include "plugin/mpbp/ppapi/scriptableobject.h"

#include <exception>

#include "base/logging.h"
#include "ppapi/browser.h"

namespace mpbp {

bool ScriptableObject::HasProperty(const Var&, Var*) { return false; }

bool ScriptableObject::HasMethod(const Var&, Var*) { return false; }

Var ScriptableObject::GetProperty(const Var&, Var* exception) {
  *exception = Var("Property does not exist on ScriptableObject");
  return {};
}

void ScriptableObject::GetAllPropertyNames(std::vector<Var>*, Var*) {}

void ScriptableObject::SetProperty(const Var&, const Var&, Var* exception) {
  *exception = Var("Property can not be set on ScriptableObject");
}

void ScriptableObject::RemoveProperty(const Var&, Var* exception) {
  *exception = Var("Property does does not exist to be removed in ScriptableObject");
}

Var ScriptableObject::Call(const Var&, std::span<const Var>, Var* exception) {
  *exception = Var("Method does not exist to call in ScriptableObject");
  return {};
}

Var ScriptableObject::Construct(std::span<const Var>, Var* exception) {
  *exception = Var("Construct method does not exist in ScriptableObject");
  return {};
}

namespace {

// What the browser holds as the object's data, from CreateObject to Deallocate.
struct Holder {
  explicit Holder(std::shared_ptr<ScriptableObject> held) : object(std::move(held)) {}

  const std::shared_ptr<ScriptableObject> object;
  bool creating = true;  // CreateObject is on the stack
  bool deallocated = false;
};

// Runs one operation on the object, which is held meanwhile, and hands what it throws to the
// browser.
template <typename Operation>
auto Invoke(void* holder, PP_Var* exception, Operation operation) noexcept
    -> decltype(operation(std::declval<ScriptableObject&>(), std::declval<Var*>())) {
  using Result = decltype(operation(std::declval<ScriptableObject&>(), std::declval<Var*>()));
  try {
    const std::shared_ptr<ScriptableObject> object = static_cast<const Holder*>(holder)->object;
    Var thrown;
    if constexpr (std::is_void_v<Result>) {
      operation(*object, &thrown);
      if (!thrown.is_undefined() && exception) *exception = thrown.Detach();
      return;
    } else {
      Result result = operation(*object, &thrown);
      if (!thrown.is_undefined() && exception) *exception = thrown.Detach();
      return result;
    }
  } catch (const std::exception& e) {
    LOG(LS_ERROR) << "A call of the page failed: " << e.what();
  }
  return Result();
}

std::vector<Var> ShareArguments(uint32_t count, const PP_Var* values) {
  std::vector<Var> arguments;
  for (uint32_t i = 0; values && i < count; ++i) arguments.push_back(Var::Share(values[i]));
  return arguments;
}

bool HasProperty(void* object, PP_Var name, PP_Var* exception) {
  return Invoke(object, exception, [&](ScriptableObject& self, Var* thrown) {
    return self.HasProperty(Var::Share(name), thrown);
  });
}

bool HasMethod(void* object, PP_Var name, PP_Var* exception) {
  return Invoke(object, exception, [&](ScriptableObject& self, Var* thrown) {
    return self.HasMethod(Var::Share(name), thrown);
  });
}

PP_Var GetProperty(void* object, PP_Var name, PP_Var* exception) {
  return Invoke(object, exception,
                [&](ScriptableObject& self, Var* thrown) {
                  return self.GetProperty(Var::Share(name), thrown);
                })
      .Detach();
}

void GetAllPropertyNames(void* object, uint32_t* count, PP_Var** names, PP_Var* exception) {
  *count = 0;
  *names = nullptr;
  std::vector<Var> found = Invoke(object, exception, [](ScriptableObject& self, Var* thrown) {
    std::vector<Var> all;
    self.GetAllPropertyNames(&all, thrown);
    return all;
  });
  const PPB_Memory_Dev_0_1* const memory = Browser().memory;
  if (found.empty() || !memory) return;
  const auto size = static_cast<uint32_t>(found.size());
  auto* const out = static_cast<PP_Var*>(memory->MemAlloc(size * sizeof(PP_Var)));
  if (!out) return;
  for (uint32_t i = 0; i < size; ++i) out[i] = found[i].Detach();
  *names = out;
  *count = size;
}

void SetProperty(void* object, PP_Var name, PP_Var value, PP_Var* exception) {
  Invoke(object, exception, [&](ScriptableObject& self, Var* thrown) {
    self.SetProperty(Var::Share(name), Var::Share(value), thrown);
  });
}

void RemoveProperty(void* object, PP_Var name, PP_Var* exception) {
  Invoke(object, exception, [&](ScriptableObject& self, Var* thrown) {
    self.RemoveProperty(Var::Share(name), thrown);
  });
}

PP_Var Call(void* object, PP_Var method, uint32_t argc, PP_Var* argv, PP_Var* exception) {
  return Invoke(object, exception,
                [&](ScriptableObject& self, Var* thrown) {
                  return self.Call(Var::Share(method), ShareArguments(argc, argv), thrown);
                })
      .Detach();
}

PP_Var Construct(void* object, uint32_t argc, PP_Var* argv, PP_Var* exception) {
  return Invoke(object, exception,
                [&](ScriptableObject& self, Var* thrown) {
                  return self.Construct(ShareArguments(argc, argv), thrown);
                })
      .Detach();
}

void Deallocate(void* data) {
  auto* const holder = static_cast<Holder*>(data);
  holder->deallocated = true;
  if (!holder->creating) delete holder;
}

constexpr PPP_Class_Deprecated kClass = {
    &HasProperty,    &HasMethod, &GetProperty, &GetAllPropertyNames, &SetProperty,
    &RemoveProperty, &Call,      &Construct,   &Deallocate,
};

}  // namespace

Var CreateScriptObject(PP_Instance instance, std::shared_ptr<ScriptableObject> object) {
  const PPB_Var_Deprecated_0_3* const scripting = Browser().var_deprecated;
  if (!scripting) return {};
  auto holder = std::make_unique<Holder>(std::move(object));
  Var result = Var::Adopt(scripting->CreateObject(instance, &kClass, holder.get()));
  holder->creating = false;
  // From here on Deallocate deletes it, unless that has been called inside.
  if (result.is_object() && !holder->deallocated) static_cast<void>(holder.release());
  return result;
}

}  // namespace mpbp
