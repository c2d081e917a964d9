#include "engine/json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>

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
  try {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value value;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
    if (!value.isArray() || value.empty() || !value[0].isString()) return {};
    return value;
  } catch (const std::exception&) {
    return {};  // nested too deeply
  }
}

std::string WriteMessage(const Json::Value& message) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  std::string text = Json::writeString(builder, message);
  Disarm(text);
  return text;
}

std::optional<int> IntAt(const Json::Value& message, Json::ArrayIndex index, int min, int max) {
  if (index >= message.size() || !message[index].isInt()) return {};
  const int value = message[index].asInt();
  if (value < min || value > max) return {};
  return value;
}

std::optional<std::string> StringAt(const Json::Value& message, Json::ArrayIndex index) {
  if (index >= message.size() || !message[index].isString()) return {};
  return message[index].asString();
}

}  // namespace mpbp::engine
