#include "jsontext.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>

namespace mpbp {
namespace {

Json::StreamWriterBuilder CompactWriter() {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  return builder;
}

}  // namespace

std::optional<Json::Value> ParseJson(const std::string& text, std::string* errors) {
  std::string messages;
  try {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    if (reader->parse(text.data(), text.data() + text.size(), &value, &messages)) return value;
  } catch (const std::exception& e) {
    messages = e.what();  // nested too deeply
  }
  if (errors) *errors = messages;
  return std::nullopt;
}

std::string WriteJson(const Json::Value& value) {
  try {
    return Json::writeString(CompactWriter(), value);
  } catch (const std::exception&) {
    return {};
  }
}

const Json::Value& ElementAt(const Json::Value& array, unsigned index) {
  if (!array.isArray() || index >= array.size()) return Json::Value::nullSingleton();
  return array[index];
}

const Json::Value& MemberOf(const Json::Value& object, const char* name) {
  if (!object.isObject()) return Json::Value::nullSingleton();
  return object[name];
}

std::optional<std::string> AsString(const Json::Value& value) {
  if (!value.isString()) return std::nullopt;
  return value.asString();
}

}  // namespace mpbp
