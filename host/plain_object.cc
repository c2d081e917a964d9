#include "host/plain_object.h"

#include <utility>

#include "host/page_function.h"

namespace mpbp::host {

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

Value MakeObject(std::map<std::string, Value> properties) {
  return ObjectRef(std::make_shared<PlainObject>(std::move(properties)));
}

}  // namespace mpbp::host
