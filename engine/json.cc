#include "engine/json.h"

#include <string_view>

#include "jsontext.h"

namespace mpbp::engine {
namespace {

constexpr struct {
  const char* quoted;
  const char* disarmed;
} kTriggers[] = {
    {"\"httprequest\"", "\"\\u0068ttprequest\""},
    {"\"getproxyforurl\"", "\"\\u0067etproxyforurl\""},
};
constexpr size_t kFirstElement = 1;  // after the bracket

void Disarm(std::string& text) {
  for (const auto& [quoted, disarmed] : kTriggers) {
    const std::string_view wanted = quoted;
    for (size_t at = text.find(wanted, kFirstElement + 1); at != std::string::npos;
         at = text.find(wanted, at)) {
      text.replace(at, wanted.size(), disarmed);
    }
  }
}

}  // namespace

std::optional<Json::Value> ParseMessage(const std::string& text) {
  std::optional<Json::Value> value = ParseJson(text);
  if (!value || !AsString(ElementAt(*value, 0))) return {};
  return value;
}

std::string WriteMessage(const Json::Value& message) {
  std::string text = WriteJson(message);
  Disarm(text);
  return text;
}

std::optional<int> IntAt(const Json::Value& message, Json::ArrayIndex index, int min, int max) {
  const Json::Value& element = ElementAt(message, index);
  if (!element.isInt() || element.asInt() < min || element.asInt() > max) return {};
  return element.asInt();
}

std::optional<std::string> StringAt(const Json::Value& message, Json::ArrayIndex index) {
  return AsString(ElementAt(message, index));
}

}  // namespace mpbp::engine
