#include "jsontext.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <locale>
#include <memory>

#include "base/staticobject.h"

namespace mpbp {
namespace {

// What makes readers and writers. Made once: that takes longer than reading a short text.
struct Makers {
  Makers() {
    reader["collectComments"] = false;
    writer["indentation"] = "";
    writer["commentStyle"] = "None";
    writer["emitUTF8"] = true;
  }

  Json::CharReaderBuilder reader;
  Json::StreamWriterBuilder writer;
};

const Makers& TheMakers() {
  static StaticObject<Makers> makers;
  return *makers;
}

// Whether the process's C++ locale, by which the library reads numbers other than integers, has
// the decimal point of JSON. The host may have set any.
bool ReadsDecimalPoints() {
  const std::locale locale;
  const auto& punctuation = std::use_facet<std::numpunct<char>>(locale);
  return punctuation.decimal_point() == '.' &&
         (punctuation.grouping().empty() || punctuation.thousands_sep() != '.');
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Where what begins at `start`, a string, a comment or any other character, ends.
size_t EndOfToken(std::string_view text, size_t start) {
  size_t end = start + 1;
  if (text[start] == '"') {
    while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
    ++end;
  } else if (text.compare(start, 2, "//") == 0) {
    end = text.find('\n', start);
  } else if (text.compare(start, 2, "/*") == 0) {
    end = text.find("*/", start + 2);
  }
  return std::min(end, text.size());
}

// The same JSON with 15e-1 for every 1.5.
std::string WithoutDecimalPoints(std::string_view text) {
  constexpr char kDigits[] = "0123456789";
  std::string result;
  result.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    if (text[at] != '.' || at == 0 || !IsDigit(text[at - 1])) {
      const size_t end = EndOfToken(text, at);
      result.append(text, at, end - at);
      at = end;
      continue;
    }
    const size_t fraction = at + 1;
    at = std::min(text.find_first_not_of(kDigits, fraction), text.size());
    result.append(text, fraction, at - fraction);
    auto exponent = -static_cast<int64_t>(at - fraction);
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
      const char* number = text.data() + at + 1;
      if (number + 1 < text.data() + text.size() && *number == '+' && IsDigit(number[1])) ++number;
      int32_t written = 0;
      const auto [end, error] = std::from_chars(number, text.data() + text.size(), written);
      if (error == std::errc()) {
        exponent += written;
        at = static_cast<size_t>(end - text.data());
      }
    }
    result += 'e' + std::to_string(exponent);
  }
  return result;
}

// As ParseJson, but throws for what is nested too deeply.
std::optional<Json::Value> ParseDocument(std::string_view text, std::string* errors) {
  const std::unique_ptr<Json::CharReader> reader(TheMakers().reader.newCharReader());
  Json::Value value;
  if (reader->parse(text.data(), text.data() + text.size(), &value, errors)) return value;
  return std::nullopt;
}

}  // namespace

std::optional<Json::Value> ParseJson(std::string_view text, std::string* errors) {
  try {
    if (!ReadsDecimalPoints() && text.find('.') != std::string::npos) {
      return ParseDocument(WithoutDecimalPoints(text), errors);
    }
    return ParseDocument(text, errors);
  } catch (const std::exception& e) {
    if (errors) *errors = e.what();  // nested too deeply
    return std::nullopt;
  }
}

std::string WriteJson(const Json::Value& value) {
  try {
    return Json::writeString(TheMakers().writer, value);
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
