#include "connector/base64.h"

#include <cstdint>

namespace mpbp {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

uint32_t ByteAt(std::string_view bytes, size_t index) {
  return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const uint32_t group =
        ByteAt(bytes, i) << 16 | ByteAt(bytes, i + 1) << 8 | ByteAt(bytes, i + 2);
    text += kDigits[group >> 18];
    text += kDigits[group >> 12 & 63];
    text += i + 1 < bytes.size() ? kDigits[group >> 6 & 63] : '=';
    text += i + 2 < bytes.size() ? kDigits[group & 63] : '=';
  }
  return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  text.remove_suffix(padding);
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  uint32_t bits = 0;
  int count = 0;  // of bits that are no byte yet
  for (const char c : text) {
    const size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) return std::nullopt;
    bits = (bits << 6 | static_cast<uint32_t>(digit)) & 0xffff;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xff);
  }
  return bytes;
}

}  // namespace mpbp
