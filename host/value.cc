#include "host/value.h"

namespace mpbp::host {

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

}  // namespace mpbp::host
