// Texts that should be UTF-8, against a reading by the definition: decode, and see what was there.
#include "base/utf8.h"

#include <algorithm>
#include <cstdint>

#include "fuzz/fuzz.h"

namespace mpbp::fuzz {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

std::string Encode(uint32_t code) {
  const auto byte = [](uint32_t value) { return static_cast<char>(value); };
  const auto tail = [&](unsigned shift) { return byte(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) return {byte(code)};
  if (code < 0x800) return {byte(0xC0 | code >> 6), tail(0)};
  if (code < 0x10000) return {byte(0xE0 | code >> 12), tail(6), tail(0)};
  return {byte(0xF0 | code >> 18), tail(12), tail(6), tail(0)};
}

// The code point when the bytes are exactly one character in its one right form; -1 otherwise.
int32_t Decode(std::string_view bytes) {
  constexpr uint8_t kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  if (bytes.empty() || bytes.size() > 4) return -1;
  uint32_t code = static_cast<uint8_t>(bytes[0]) & kLeadBits[bytes.size()];
  for (const char byte : bytes.substr(1)) code = code << 6 | (static_cast<uint8_t>(byte) & 0x3F);
  if ((code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF || Encode(code) != bytes) return -1;
  return static_cast<int32_t>(code);
}

// Whether more bytes could make a character of these.
bool IsBeginning(const std::string& bytes) {
  for (size_t more = 1; bytes.size() + more <= 4; ++more) {
    if (Decode(bytes + std::string(more, '\x80')) >= 0) return true;
    if (Decode(bytes + std::string(more, '\xBF')) >= 0) return true;
  }
  return false;
}

bool IsNoncharacter(int32_t code) {
  return (code >= 0xFDD0 && code <= 0xFDEF) || (code & 0xFFFF) >= 0xFFFE;
}

struct Reading {
  bool valid = true;
  std::string repaired;
  std::string without_noncharacters;
};

Reading ReadPlainly(std::string_view text) {
  Reading reading;
  while (!text.empty()) {
    size_t length = 1;
    while (length < 4 && Decode(text.substr(0, length)) < 0) ++length;
    const std::string_view character = text.substr(0, length);
    const int32_t code = Decode(character);
    if (code >= 0) {
      reading.repaired += character;
      reading.without_noncharacters += IsNoncharacter(code) ? kReplacement : character;
    } else {
      reading.valid = false;
      reading.repaired += kReplacement;
      reading.without_noncharacters += kReplacement;
      length = 1;
      while (length < text.size() && IsBeginning(std::string(text.substr(0, length + 1)))) ++length;
    }
    text.remove_prefix(std::min(length, text.size()));
  }
  return reading;
}

}  // namespace

void TestInput(std::string_view input) {
  const Reading expected = ReadPlainly(input);
  FUZZ_CHECK(IsValidUtf8(input) == expected.valid);
  const std::string repaired = ReplaceInvalidUtf8(input);
  FUZZ_CHECK(repaired == expected.repaired);
  FUZZ_CHECK(IsValidUtf8(repaired));
  FUZZ_CHECK(!expected.valid || repaired == input);
  FUZZ_CHECK(repaired.size() <= 3 * input.size());
  const std::string plain = ReplaceInvalidUtf8AndNoncharacters(input);
  FUZZ_CHECK(plain == expected.without_noncharacters);
  FUZZ_CHECK(IsValidUtf8(plain) && ReplaceInvalidUtf8AndNoncharacters(plain) == plain);
}

}  // namespace mpbp::fuzz
