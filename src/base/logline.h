// The text of one log line while a statement writes it. Numbers are written as in the C locale,
// whatever the host has set.
#ifndef MPBP_BASE_LOGLINE_H_
#define MPBP_BASE_LOGLINE_H_

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace mpbp {

class LogLine {
 public:
  LogLine() { text_.reserve(kUsualLength); }
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  const std::string& text() const { return text_; }

  LogLine& operator<<(std::string_view text) {
    text_ += text;
    return *this;
  }
  LogLine& operator<<(const char* text) {
    return *this << std::string_view(text ? text : "(null)");
  }
  LogLine& operator<<(const std::string& text) { return *this << std::string_view(text); }
  LogLine& operator<<(char character) {
    text_ += character;
    return *this;
  }
  LogLine& operator<<(bool value) { return *this << (value ? '1' : '0'); }
  template <std::integral Integer>
  LogLine& operator<<(Integer value) {
    return WriteNumber(value, 10);
  }
  template <typename Enum>
  requires std::is_enum_v<Enum> && std::is_convertible_v<Enum, int64_t> LogLine& operator<<(
      Enum value) {
    return WriteNumber(static_cast<std::underlying_type_t<Enum>>(value), 10);
  }
  // An address: 0x and hexadecimal digits; 0 for none.
  LogLine& operator<<(const void* pointer) {
    if (!pointer) return *this << '0';
    return (*this << "0x").WriteNumber(reinterpret_cast<uintptr_t>(pointer), 16);
  }

  // With leading zeros where it has fewer digits.
  LogLine& WritePadded(uint32_t value, size_t digits) {
    const std::string number = std::to_string(value);
    if (number.size() < digits) text_.append(digits - number.size(), '0');
    return *this << number;
  }

 private:
  static constexpr size_t kUsualLength = 192;  // few lines have to grow

  template <typename Integer>
  LogLine& WriteNumber(Integer value, int base) {
    char digits[24];
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), value, base).ptr;
    text_.append(std::string_view(digits, static_cast<size_t>(end - digits)));
    return *this;
  }

  std::string text_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_LOGLINE_H_
