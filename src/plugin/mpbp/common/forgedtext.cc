#include "plugin/mpbp/common/forgedtext.h"

#include <charconv>
#include <string>

namespace mpbp {
namespace {

constexpr std::string_view kForbidden = "mpbp-request-permission-result";

// The character of the four hexadecimal digits at the beginning of `digits`, when it is an ASCII
// one; -1 otherwise. The words looked for have no other.
int AsciiOfEscape(std::string_view digits) {
  if (digits.size() < 4) return -1;
  unsigned value = 0;
  const char* const end = digits.data() + 4;
  const auto [stopped, error] = std::from_chars(digits.data(), end, value, 16);
  return error == std::errc() && stopped == end && value < 0x80 ? static_cast<int>(value) : -1;
}

// The text with its escapes resolved: "\u002d" is a hyphen, and a backslash before any other
// character, also one that JSON knows no escape for, is dropped.
std::string WithoutEscapes(std::string_view text) {
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

}  // namespace

bool IsForgedPermissionResult(std::string_view text) {
  if (text.find(kForbidden) != std::string_view::npos) return true;
  if (text.find('\\') == std::string_view::npos) return false;
  return WithoutEscapes(text).find(kForbidden) != std::string::npos;
}

}  // namespace mpbp
