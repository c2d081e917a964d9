#include "jsonescapes.h"

#include <charconv>

namespace mpbp {
namespace {

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

std::string WithoutJsonEscapes(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (size_t at = 0;;) {
    const size_t backslash = text.find('\\', at);
    if (backslash == std::string_view::npos || backslash + 1 == text.size()) {
      return plain.append(text.substr(at));
    }
    plain.append(text.substr(at, backslash - at));
    const char escape = text[backslash + 1];
    at = backslash + 2;
    const int character = escape == 'u' ? AsciiOfEscape(text.substr(at)) : -1;
    plain += character >= 0 ? static_cast<char>(character) : escape;
    if (character >= 0) at += 4;
  }
}

}  // namespace mpbp
