#include "base/utf8.h"

#include <cstddef>
#include <cstdint>

namespace mpbp {
namespace {

struct Step {
  size_t length;  // bytes looked at, at least 1
  bool valid;     // they are one character
};

// Length of a character and the range of its second byte, by its first byte; length 0: no first
// byte. From the table of well-formed byte sequences of the Unicode standard (3.9, table 3-7).
struct Lead {
  size_t length;
  uint8_t second_low;
  uint8_t second_high;
};

Lead LeadOf(uint8_t byte) {
  if (byte < 0x80) return {1, 0, 0};
  if (byte < 0xC2) return {0, 0, 0};
  if (byte < 0xE0) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte < 0xF0) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte < 0xF4) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

Step NextStep(std::string_view text) {
  const Lead lead = LeadOf(static_cast<uint8_t>(text[0]));
  if (lead.length <= 1) return {1, lead.length == 1};
  for (size_t i = 1; i < lead.length; ++i) {
    if (i >= text.size()) return {i, false};
    const auto byte = static_cast<uint8_t>(text[i]);
    const uint8_t low = i == 1 ? lead.second_low : 0x80;
    const uint8_t high = i == 1 ? lead.second_high : 0xBF;
    if (byte < low || byte > high) return {i, false};
  }
  return {lead.length, true};
}

// The code point of one well-formed character.
uint32_t CodePoint(std::string_view character) {
  const auto lead = static_cast<uint8_t>(character[0]);
  if (character.size() == 1) return lead;
  uint32_t code_point = lead & (0x7FU >> character.size());
  for (const char byte : character.substr(1)) {
    code_point = code_point << 6 | (static_cast<uint8_t>(byte) & 0x3FU);
  }
  return code_point;
}

bool IsNoncharacter(std::string_view character) {
  const uint32_t code_point = CodePoint(character);
  return (code_point & 0xFFFE) == 0xFFFE || (code_point >= 0xFDD0 && code_point <= 0xFDEF);
}

template <typename Predicate>
std::string Replace(std::string_view text, Predicate is_kept) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Step step = NextStep(text);
    const std::string_view character = text.substr(0, step.length);
    result += step.valid && is_kept(character) ? character : std::string_view("\xEF\xBF\xBD");
    text.remove_prefix(step.length);
  }
  return result;
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const Step step = NextStep(text);
    if (!step.valid) return false;
    text.remove_prefix(step.length);
  }
  return true;
}

std::string ReplaceInvalidUtf8(std::string_view text) {
  return Replace(text, [](std::string_view) { return true; });
}

std::string ReplaceInvalidUtf8AndNoncharacters(std::string_view text) {
  return Replace(text, [](std::string_view character) { return !IsNoncharacter(character); });
}

}  // namespace mpbp
