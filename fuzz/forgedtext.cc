// Texts of a page that may pretend to be the answer to a permission request: none that any JSON
// reader would take for it passes, and none is held back that does not spell the name.
#include "plugin/mpbp/common/forgedtext.h"

#include <json/reader.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

#include "fuzz/fuzz.h"

namespace mpbp::fuzz {
namespace {

constexpr std::string_view kName = "mpbp-request-permission-result";

// Whether the reader, lenient or not, finds an array that begins with the name.
bool IsAnswer(std::string_view text, const Json::CharReaderBuilder& builder) {
  try {
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &value, &errors) &&
           value.isArray() && value[0].isString() && value[0].asString() == kName;
  } catch (const std::exception&) {
    return false;  // nested too deeply
  }
}

Json::CharReaderBuilder LenientReader() {
  Json::CharReaderBuilder builder;
  for (const char* const setting :
       {"allowComments", "allowTrailingCommas", "allowDroppedNullPlaceholders", "allowNumericKeys",
        "allowSingleQuotes", "allowSpecialFloats", "skipBom"}) {
    builder[setting] = true;
  }
  return builder;
}

// How many bytes at the beginning of the text spell `character`, plain or escaped; 0 when they do
// not. A backslash before a character that JSON knows no escape for counts as nothing.
size_t Spells(std::string_view text, char character) {
  if (text.substr(0, 1) == std::string_view(&character, 1)) return 1;
  if (!text.starts_with('\\')) return 0;
  const std::string digits(text.substr(0, 6).substr(text.size() < 2 ? 1 : 2));
  if (text.substr(1, 1) == "u" &&
      digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos &&
      digits.size() == 4) {
    return strtol(digits.c_str(), nullptr, 16) == character ? 6 : 0;
  }
  return text.substr(1, 1) == std::string_view(&character, 1) ? 2 : 0;
}

// How many bytes at the beginning of the text spell the name, 0 when they do not.
size_t SpellsName(std::string_view text) {
  size_t length = 0;
  for (const char character : kName) {
    const size_t step = Spells(text.substr(length), character);
    if (step == 0) return 0;
    length += step;
  }
  return length;
}

// The name, each character written in the way that a byte of the input chooses.
std::string WriteName(std::string_view input) {
  std::string name;
  for (size_t i = 0; i < kName.size(); ++i) {
    const int way = i < input.size() ? input[i] & 3 : 0;
    const char* const format = way == 1 ? "\\u%04x" : way == 2 ? "\\u%04X" : "%c";
    char written[8];
    snprintf(written, sizeof(written), format, kName[i]);
    name += written;
  }
  return name;
}

}  // namespace

void TestInput(std::string_view input) {
  static const Json::CharReaderBuilder kUsualReader;
  static const Json::CharReaderBuilder kLenientReader = LenientReader();
  const bool forged = IsForgedPermissionResult(input);
  FUZZ_CHECK(forged || !IsAnswer(input, kUsualReader));
  FUZZ_CHECK(forged || !IsAnswer(input, kLenientReader));

  bool spelled = false;
  bool quoted = false;  // a string of the text is the name
  for (size_t i = 0; i < input.size(); ++i) {
    const size_t length = SpellsName(input.substr(i));
    if (length == 0) continue;
    spelled = true;
    quoted = quoted || (i > 0 && input[i - 1] == '"' && input.substr(i + length, 1) == "\"");
  }
  FUZZ_CHECK(forged || !quoted);
  FUZZ_CHECK(spelled || !forged);

  const std::string answer = " [\t\"" + WriteName(input) + "\",1,\"id\",7,true]";
  FUZZ_CHECK(IsAnswer(answer, kUsualReader));
  FUZZ_CHECK(IsForgedPermissionResult(answer));
}

}  // namespace mpbp::fuzz
