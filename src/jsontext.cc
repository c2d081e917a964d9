#include "jsontext.h"

#include <json/reader.h>
#include <json/writer.h>

#include <charconv>
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

// The character of the four hexadecimal digits at the beginning of `digits`, when it is an ASCII
// one; -1 otherwise. The words looked for have no other.
int AsciiOfEscape(std::string_view digits) {
  if (digits.size() < 4) return -1;
  unsigned value = 0;
  const char* const end = digits.data() + 4;
  const auto [stopped, error] = std::from_chars(digits.data(), end, value, 16);
  return error == std::errc() && stopped == end && value < 0x80 ? static_cast<int>(value) : -1;
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

std::string WithoutJsonEscapes(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      plain += text[i];
      continue;
    }
    const char escape = text[++i];
    const int character = escape == 'u' ? AsciiOfEscape(text.substr(i + 1)) : -1;
    plain += character >= 0 ? static_cast<char>(character) : escape;
    if (character >= 0) i += 4;
  }
  return plain;
}

}  // namespace mpbp
