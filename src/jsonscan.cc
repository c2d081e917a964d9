#include "jsonscan.h"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstring>

namespace mpbp {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Numbers of so many digits are exact for every reader.
constexpr size_t kMaxDigits = 15;
constexpr size_t kMaxDepth = 128;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr uint64_t EachByte(uint8_t value) { return uint64_t{0x0101010101010101} * value; }

// Nonzero when one of the eight bytes is zero.
constexpr uint64_t ZeroBytes(uint64_t bytes) {
  return (bytes - EachByte(1)) & ~bytes & EachByte(0x80);
}

// Whether one of the eight characters ends a run of plain ones in a string: a quote, a backslash, a
// control character.
bool HaveSpecial(const char* characters) {
  uint64_t bytes = 0;
  memcpy(&bytes, characters, sizeof(bytes));
  const uint64_t control = (bytes - EachByte(0x20)) & ~bytes & EachByte(0x80);
  return (control | ZeroBytes(bytes ^ EachByte('"')) | ZeroBytes(bytes ^ EachByte('\\'))) != 0;
}

bool IsSpecial(char c) { return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20; }

// Goes through a text; every step is false, for good, where it finds something else.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

  bool ScanDocument() {
    SkipBlanks();
    if (!StartsWith('[') && !StartsWith('{')) return false;
    do {
      if (!ScanValue()) return false;
    } while (!inside_.empty());
    SkipBlanks();
    return at_ == end_;
  }

 private:
  // The arrays and objects that the place is inside of.
  class Nesting {
   public:
    bool empty() const { return depth_ == 0; }
    bool in_object() const { return depth_ > 0 && objects_[depth_ - 1]; }
    bool Enter(bool object) {
      if (depth_ == kMaxDepth) return false;
      objects_[depth_++] = object;
      return true;
    }
    void Leave() { --depth_; }

   private:
    std::bitset<kMaxDepth> objects_;
    size_t depth_ = 0;
  };

  bool StartsWith(char c) const { return at_ != end_ && *at_ == c; }
  bool Take(char c) {
    if (!StartsWith(c)) return false;
    ++at_;
    return true;
  }
  void SkipBlanks() {
    while (at_ != end_ && kBlanks.find(*at_) != std::string_view::npos) ++at_;
  }

  // A value, up to the place where the next one begins or the document is over.
  bool ScanValue() {
    SkipBlanks();
    const bool object = StartsWith('{');
    if (object || StartsWith('[')) {
      ++at_;
      if (!inside_.Enter(object)) return false;
      SkipBlanks();
      if (!StartsWith(object ? '}' : ']')) return !object || ScanName();
    } else if (!ScanScalar()) {
      return false;
    }
    return ScanWhatFollows();
  }

  bool ScanWhatFollows() {
    while (!inside_.empty()) {
      SkipBlanks();
      const bool object = inside_.in_object();
      if (Take(',')) return !object || ScanName();
      if (!Take(object ? '}' : ']')) return false;
      inside_.Leave();
    }
    return true;
  }

  bool ScanName() {
    SkipBlanks();
    if (!StartsWith('"') || !ScanString()) return false;
    SkipBlanks();
    return Take(':');
  }

  bool ScanScalar() {
    if (StartsWith('"')) return ScanString();
    return ScanWord("true") || ScanWord("false") || ScanWord("null") || ScanNumber();
  }

  bool ScanWord(std::string_view word) {
    if (!std::string_view(at_, end_).starts_with(word)) return false;
    at_ += word.size();
    return true;
  }

  bool ScanString() {
    ++at_;  // the quote
    for (;;) {
      while (end_ - at_ >= 8 && !HaveSpecial(at_)) at_ += 8;
      while (at_ != end_ && !IsSpecial(*at_)) ++at_;
      if (Take('"')) return true;
      if (!Take('\\') || !ScanEscape()) return false;
    }
  }

  // After the backslash. Those with numbers have rules of their own about pairs.
  bool ScanEscape() {
    constexpr std::string_view kEscapes = "\"\\/bfnrt";
    if (at_ == end_ || kEscapes.find(*at_) == std::string_view::npos) return false;
    ++at_;
    return true;
  }

  bool ScanNumber() {
    Take('-');
    const char* const whole = at_;
    if (!ScanDigits() || (*whole == '0' && at_ - whole > 1)) return false;
    return !Take('.') || ScanDigits();
  }

  bool ScanDigits() {
    const char* const first = at_;
    at_ = std::find_if_not(at_, end_, &IsDigit);
    const auto count = static_cast<size_t>(at_ - first);
    return count > 0 && count <= kMaxDigits;
  }

  const char* at_;
  const char* const end_;
  Nesting inside_;
};

}  // namespace

bool MayBeNamed(std::string_view text, std::initializer_list<std::string_view> names) {
  const auto skip_blanks = [&text] {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  };
  // A comment, or a byte order mark: what comes after it is for the parser.
  const auto is_hidden = [&text] { return text.starts_with('/') || text.starts_with('\xef'); };
  skip_blanks();
  if (is_hidden()) return true;
  if (!text.starts_with('[')) return false;
  text.remove_prefix(1);
  skip_blanks();
  if (is_hidden()) return true;
  if (!text.starts_with('"')) return false;
  text.remove_prefix(1);
  return std::any_of(names.begin(), names.end(), [text](std::string_view name) {
    // As far as the text has the name's characters; an escape may stand for any of the rest.
    const auto [rest, missing] = std::mismatch(text.begin(), text.end(), name.begin(), name.end());
    return rest != text.end() && *rest == (missing == name.end() ? '"' : '\\');
  });
}

bool IsPlainJson(std::string_view text) { return Scanner(text).ScanDocument(); }

}  // namespace mpbp
