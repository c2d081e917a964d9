#include "host/script.h"

#include <exception>
#include <utility>

namespace mpbp::host {

ObjectRef::ObjectRef(std::shared_ptr<ScriptObject> object) : object_(std::move(object)) {
  if (object_) ++object_->references_;
}

ObjectRef::ObjectRef(const ObjectRef& other) : ObjectRef(other.object_) {}

ObjectRef::ObjectRef(ObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

ObjectRef& ObjectRef::operator=(ObjectRef other) noexcept {
  object_.swap(other.object_);
  return *this;
}

ObjectRef::~ObjectRef() { Reset(); }

void ObjectRef::Reset() {
  const auto object = std::exchange(object_, nullptr);
  if (object && --object->references_ == 0) object->OnUnreferenced();
}

std::string ToText(const Value& value) {
  struct Visitor {
    std::string operator()(Undefined) { return "undefined"; }
    std::string operator()(Null) { return "null"; }
    std::string operator()(bool b) { return b ? "true" : "false"; }
    std::string operator()(int32_t i) { return std::to_string(i); }
    std::string operator()(double d) { return std::to_string(d); }
    std::string operator()(const std::string& s) { return "\"" + s + "\""; }
    std::string operator()(const ObjectRef&) { return "object"; }
  };
  return std::visit(Visitor{}, value);
}

std::optional<std::string> AsString(const Value& value) {
  const auto* text = std::get_if<std::string>(&value);
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

PlainObject::PlainObject(std::map<std::string, Value> properties)
    : properties_(std::move(properties)) {}

bool PlainObject::HasProperty(const Value& name, Thrown& /*thrown*/) {
  const auto* text = std::get_if<std::string>(&name);
  return text != nullptr && properties_.contains(*text);
}

bool PlainObject::HasMethod(const Value& name, Thrown& /*thrown*/) {
  const auto* text = std::get_if<std::string>(&name);
  if (text == nullptr) return false;
  const auto found = properties_.find(*text);
  if (found == properties_.end()) return false;
  const auto* object = std::get_if<ObjectRef>(&found->second);
  return object != nullptr && dynamic_cast<PageFunction*>(object->get().get()) != nullptr;
}

Value PlainObject::GetProperty(const Value& name, Thrown& /*thrown*/) {
  const auto* text = std::get_if<std::string>(&name);
  if (text == nullptr) return Undefined{};
  const auto found = properties_.find(*text);
  return found != properties_.end() ? found->second : Undefined{};
}

void PlainObject::SetProperty(const Value& name, const Value& value, Thrown& thrown) {
  const auto text = AsString(name);
  if (!text) {
    thrown = "property name is " + ToText(name);
    return;
  }
  // The old value leaves last: it may be the last reference to an object that runs code as it goes.
  const Value old = std::exchange(properties_[*text], value);
}

void PlainObject::RemoveProperty(const Value& name, Thrown& /*thrown*/) {
  if (const auto text = AsString(name)) const auto removed = properties_.extract(*text);
}

std::vector<std::string> PlainObject::PropertyNames(Thrown& /*thrown*/) {
  std::vector<std::string> names;
  names.reserve(properties_.size());
  for (const auto& [name, value] : properties_) names.push_back(name);
  return names;
}

Value PlainObject::Call(const Value& method, const Values& arguments, Thrown& thrown) {
  if (std::holds_alternative<Null>(method)) {
    thrown = "method name is null";
  } else if (!HasMethod(method, thrown)) {
    thrown = std::holds_alternative<Undefined>(method) ? "object is not a function"
                                                       : ToText(method) + " is not a function";
  } else {
    const Value function = GetProperty(method, thrown);
    const auto object = std::get<ObjectRef>(function).get();
    return object->Call(Undefined{}, arguments, thrown);
  }
  return Undefined{};
}

Value PlainObject::Construct(const Values& /*arguments*/, Thrown& thrown) {
  thrown = "object is not a constructor";
  return Undefined{};
}

PageFunction::PageFunction(Function function) : function_(std::move(function)) {}

Value PageFunction::Call(const Value& method, const Values& arguments, Thrown& thrown) {
  if (!std::holds_alternative<Undefined>(method)) {
    return PlainObject::Call(method, arguments, thrown);
  }
  try {
    Result result = function_(arguments);
    thrown = std::move(result.exception);
    return thrown ? Value() : std::move(result.value);
  } catch (const std::exception& error) {
    thrown = error.what();
  } catch (...) {
    thrown = "unknown exception";
  }
  return Undefined{};
}

Value MakeObject(std::map<std::string, Value> properties) {
  return ObjectRef(std::make_shared<PlainObject>(std::move(properties)));
}

Value MakeFunction(Function function) {
  return ObjectRef(std::make_shared<PageFunction>(std::move(function)));
}

}  // namespace mpbp::host
