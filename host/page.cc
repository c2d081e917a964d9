#include "host/page.h"

#include "host/core.h"
#include "host/module_object.h"
#include "host/page_function.h"
#include "host/scoped_var.h"

namespace mpbp::host {
namespace {

// How often a browser asks for one access of a script.
constexpr int kQuestions = 2;

// The view or event that a call of the instance is about; nobody looks into it.
class Opaque final : public Resource {
 public:
  explicit Opaque(const char* kind) : kind_(kind) {}
  const char* kind() const override { return kind_; }

 private:
  const char* const kind_;
};

}  // namespace

Page::Page(Core& core, std::string url)
    : core_(core),
      url_(std::move(url)),
      window_(MakeObject({{"location", MakeObject({{"href", url_}})}})),
      owner_element_(MakeObject()) {}

void Page::Create(const Attributes& attributes) {
  const auto* plugin = core_.ModuleInterface<PPP_Instance_1_1>(PPP_INSTANCE_INTERFACE_1_1);
  if (plugin == nullptr) {
    core_.misuse.Add("the module has no " PPP_INSTANCE_INTERFACE_1_1);
    state_ = State::kGone;
    return;
  }
  std::vector<const char*> names;
  std::vector<const char*> values;
  for (const auto& [name, value] : attributes) {
    names.push_back(name.c_str());
    values.push_back(value.c_str());
  }
  instance_ = core_.next_instance--;
  core_.instances[instance_] = shared_from_this();
  state_ = State::kCreating;
  const bool usable = plugin->DidCreate(instance_, static_cast<uint32_t>(names.size()),
                                        names.data(), values.data()) != PP_FALSE;
  if (state_ != State::kCreating) return;  // it was destroyed from inside
  if (usable) {
    state_ = State::kLive;
  } else {
    EndInstance();
  }
}

void Page::DestroyInstance() {
  if (state_ == State::kLive || state_ == State::kCreating) EndInstance();
}

void Page::EndInstance() {
  const auto keep = shared_from_this();
  state_ = State::kDestroying;
  const auto* plugin = core_.ModuleInterface<PPP_Instance_1_1>(PPP_INSTANCE_INTERFACE_1_1);
  if (plugin != nullptr) plugin->DidDestroy(instance_);
  core_.resources.DropInstance(instance_);
  core_.parl.DropInstance(instance_);
  core_.instances.erase(instance_);
  state_ = State::kGone;
  element_.Reset();
  if (!core_.options.force_deallocate) return;
  std::vector<std::shared_ptr<ScriptObject>> objects;  // each may deallocate others
  for (ModuleObject* object : core_.objects) {
    if (object->instance() == instance_) objects.push_back(object->shared_from_this());
  }
  for (const auto& object : objects) static_cast<ModuleObject&>(*object).Deallocate();
}

ObjectRef Page::Element() {
  if (state_ != State::kLive || element_) return element_;
  const auto* plugin =
      core_.ModuleInterface<PPP_Instance_Private_0_1>(PPP_INSTANCE_PRIVATE_INTERFACE_0_1);
  if (plugin == nullptr) return {};
  const PP_Var var = plugin->GetInstanceObject(instance_);
  const Value value = core_.vars.ToValue(var, "GetInstanceObject");
  core_.vars.Release(var);
  const auto* ref = std::get_if<ObjectRef>(&value);
  if (ref != nullptr && state_ == State::kLive) element_ = *ref;
  return element_;
}

Page::Kind Page::Ask(ScriptObject& element, const std::string& name, Thrown& thrown) {
  Kind kind = Kind::kUnknown;
  for (int i = 0; i < kQuestions && !thrown; ++i) {
    const bool property = element.HasProperty(name, thrown);
    const bool method = !thrown && element.HasMethod(name, thrown);
    kind = property ? Kind::kProperty : method ? Kind::kMethod : Kind::kUnknown;
  }
  return thrown ? Kind::kUnknown : kind;
}

Result Page::Get(const std::string& name) {
  const auto keep = shared_from_this();
  Thrown thrown;
  const auto element = Element().get();
  const Kind kind = element ? Ask(*element, name, thrown) : Kind::kUnknown;
  Value value;
  if (kind == Kind::kProperty) {
    value = element->GetProperty(name, thrown);
  } else if (kind == Kind::kMethod) {
    value = MakeFunction([element, name](const Values& arguments) {
      Result result;
      result.value = element->Call(name, arguments, result.exception);
      return result;
    });
  } else if (const auto own = own_properties_.find(name); own != own_properties_.end()) {
    value = own->second;
  }
  return {thrown ? Value() : std::move(value), thrown};
}

Result Page::Set(const std::string& name, const Value& value) {
  const auto keep = shared_from_this();
  Thrown thrown;
  const auto element = Element().get();
  const Kind kind = element ? Ask(*element, name, thrown) : Kind::kUnknown;
  if (kind == Kind::kProperty) {
    element->SetProperty(name, value, thrown);
  } else if (!thrown) {
    const Value old = std::exchange(own_properties_[name], value);
  }
  return {Undefined{}, thrown};
}

Result Page::Call(const std::string& method, const Values& arguments) {
  const auto keep = shared_from_this();
  // As script does it: the method is read, then what was read is called.
  Result read = Get(method);
  if (read.exception) return read;
  Result result;
  const auto* ref = std::get_if<ObjectRef>(&read.value);
  const auto function = ref != nullptr ? ref->get() : nullptr;
  if (!function) return {Undefined{}, method + " is not a function"};
  result.value = function->Call(Undefined{}, arguments, result.exception);
  return result;
}

Result Page::Has(const std::string& name) {
  const auto keep = shared_from_this();
  Thrown thrown;
  const auto element = Element().get();
  const Kind kind = element ? Ask(*element, name, thrown) : Kind::kUnknown;
  return {kind != Kind::kUnknown || own_properties_.contains(name), thrown};
}

std::vector<std::string> Page::Enumerate(Thrown* thrown) {
  const auto keep = shared_from_this();
  Thrown ignored;
  const auto element = Element().get();
  return element ? element->PropertyNames(thrown != nullptr ? *thrown : ignored)
                 : std::vector<std::string>();
}

Result Page::SetOnMessage(std::function<void(const std::string&)> on_message) {
  const std::weak_ptr<Page> weak = weak_from_this();
  return Set("onmessage",
             MakeFunction([weak, on_message = std::move(on_message)](const Values& arguments) {
               const auto text = arguments.size() == 1 ? AsString(arguments[0]) : std::nullopt;
               if (text) {
                 on_message(*text);
               } else if (const auto page = weak.lock(); page && page->has_plugin()) {
                 page->core_.misuse.Add("onmessage was called with something other than a string");
               }
               return Result();
             }));
}

void Page::PostMessage(const Value& message) {
  const auto keep = shared_from_this();
  if (!has_plugin()) return;
  const auto* plugin = core_.ModuleInterface<PPP_Messaging_1_0>(PPP_MESSAGING_INTERFACE_1_0);
  if (plugin == nullptr) return;
  const ScopedVar var(core_.vars, message);
  plugin->HandleMessage(instance_, var.get());
}

bool Page::SendInputEvent() {
  const auto keep = shared_from_this();
  if (!has_plugin()) return false;
  const auto* plugin = core_.ModuleInterface<PPP_InputEvent_0_1>(PPP_INPUT_EVENT_INTERFACE_0_1);
  if (plugin == nullptr) return false;
  const PP_Resource event = core_.resources.Add(instance_, std::make_shared<Opaque>("input event"));
  const bool handled = plugin->HandleInputEvent(instance_, event) != PP_FALSE;
  core_.resources.Release(event);
  return handled;
}

void Page::ChangeView() {
  const auto keep = shared_from_this();
  if (!has_plugin()) return;
  const auto* plugin = core_.ModuleInterface<PPP_Instance_1_1>(PPP_INSTANCE_INTERFACE_1_1);
  const PP_Resource view = core_.resources.Add(instance_, std::make_shared<Opaque>("view"));
  plugin->DidChangeView(instance_, view);
  core_.resources.Release(view);
}

void Page::ChangeFocus(bool has_focus) {
  const auto keep = shared_from_this();
  if (!has_plugin()) return;
  const auto* plugin = core_.ModuleInterface<PPP_Instance_1_1>(PPP_INSTANCE_INTERFACE_1_1);
  plugin->DidChangeFocus(instance_, has_focus ? PP_TRUE : PP_FALSE);
}

bool Page::FireRemotingEvent(int32_t event) {
  const auto keep = shared_from_this();
  return has_plugin() && core_.parl.FireEvent(instance_, event);
}

}  // namespace mpbp::host
