// Dates of response headers, against a reader that goes by the characters of the three forms, and
// dates that were written from a time.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "fuzz/fuzz.h"
#include "httpheaders.h"

namespace mpbp::fuzz {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int ThisYear() {
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  return static_cast<int>(std::chrono::year_month_day(today).year());
}

// Takes pieces off the front of a text; after the first that is not there all the others fail too.
class Pieces {
 public:
  explicit Pieces(std::string_view text) : text_(text) {}

  // Any number of blanks, none too: nobody minds them between the parts of a date.
  void Blanks() {
    text_.remove_prefix(std::min(text_.find_first_not_of(" \t\n\v\f\r"), text_.size()));
  }
  std::string_view Word(size_t longest) {
    size_t length = 0;
    while (length < std::min(longest, text_.size()) && IsLetter(text_[length])) ++length;
    return Take(length);
  }
  int Number(size_t longest) {
    Blanks();
    return Digits(longest);
  }
  int Digits(size_t longest) {
    size_t length = 0;
    while (length < std::min(longest, text_.size()) && IsDigit(text_[length])) ++length;
    int number = 0;
    for (const char digit : Take(length)) number = number * 10 + (digit - '0');
    return number;
  }
  void Exactly(std::string_view piece) {
    if (!text_.starts_with(piece)) ok_ = false;
    Take(piece.size());
  }
  bool Done() const { return ok_ && text_.empty(); }

 private:
  static bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
  std::string_view Take(size_t length) {
    const std::string_view piece = text_.substr(0, length);
    if (length == 0 || piece.size() < length) ok_ = false;
    text_.remove_prefix(piece.size());
    return piece;
  }

  std::string_view text_;
  bool ok_ = true;
};

struct Date {
  int year = 0;
  std::string_view month;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

void TakeTime(Pieces& pieces, Date& date) {
  date.hour = pieces.Number(2);
  pieces.Exactly(":");
  date.minute = pieces.Number(2);
  pieces.Exactly(":");
  date.second = pieces.Number(2);
}

std::optional<Date> ReadFixdate(std::string_view text) {
  Pieces pieces(text);
  Date date;
  pieces.Word(3);
  pieces.Exactly(",");
  date.day = pieces.Number(2);
  pieces.Blanks();
  date.month = pieces.Word(3);
  date.year = pieces.Number(4);
  TakeTime(pieces, date);
  pieces.Blanks();
  pieces.Exactly("GMT");
  return pieces.Done() ? std::optional(date) : std::nullopt;
}

std::optional<Date> ReadRfc850(std::string_view text) {
  Pieces pieces(text);
  Date date;
  pieces.Word(9);
  pieces.Exactly(",");
  date.day = pieces.Number(2);
  pieces.Exactly("-");
  date.month = pieces.Word(3);
  pieces.Exactly("-");
  date.year = ThisYear() / 100 * 100 + pieces.Digits(2);
  if (date.year > ThisYear() + 50) date.year -= 100;
  TakeTime(pieces, date);
  pieces.Blanks();
  pieces.Exactly("GMT");
  return pieces.Done() ? std::optional(date) : std::nullopt;
}

std::optional<Date> ReadAsctime(std::string_view text) {
  Pieces pieces(text);
  Date date;
  pieces.Word(3);
  pieces.Blanks();
  date.month = pieces.Word(3);
  date.day = pieces.Number(2);
  TakeTime(pieces, date);
  date.year = pieces.Number(4);
  return pieces.Done() ? std::optional(date) : std::nullopt;
}

uint32_t ReadPlainly(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  std::optional<Date> date = ReadFixdate(text);
  if (!date) date = ReadRfc850(text);
  if (!date) date = ReadAsctime(text);
  if (!date || date->hour > 23 || date->minute > 59 || date->second > 60) return 0;
  tm fields{};
  while (fields.tm_mon < 12 && kMonths[static_cast<size_t>(fields.tm_mon)] != date->month) {
    ++fields.tm_mon;
  }
  fields.tm_year = date->year - 1900;
  fields.tm_mday = date->day;
  const int month = fields.tm_mon;
  const time_t midnight = timegm(&fields);
  if (fields.tm_mon != month || fields.tm_mday != date->day) return 0;  // there is no such day
  const time_t minutes = date->hour * time_t{60} + date->minute;
  const time_t seconds = midnight + minutes * 60 + date->second;
  return seconds < 0 || seconds > UINT32_MAX ? 0 : static_cast<uint32_t>(seconds);
}

std::string Written(const char* format, time_t time) {
  tm fields{};
  char text[64];
  gmtime_r(&time, &fields);
  return {text, strftime(text, sizeof(text), format, &fields)};
}

}  // namespace

void TestInput(std::string_view input) {
  FUZZ_CHECK(ParseHttpDate(input) == ReadPlainly(input));

  uint32_t seconds = 0;
  for (const char byte : input.substr(0, 4)) seconds = seconds * 256 + static_cast<uint8_t>(byte);
  FUZZ_CHECK(ParseHttpDate(Written("%a, %d %b %Y %H:%M:%S GMT", seconds)) == seconds);
  FUZZ_CHECK(ParseHttpDate(Written("%a %b %e %H:%M:%S %Y", seconds)) == seconds);
  // Two digits are a year of this century, or the one before it when that is 51 years ahead or
  // more.
  for (const int year : {std::stoi(Written("%Y", seconds)), ThisYear() - 49, ThisYear() + 50}) {
    if (year < ThisYear() - 49 || year > ThisYear() + 50 || year / 100 > ThisYear() / 100) continue;
    tm fields{};
    const time_t time = seconds;
    gmtime_r(&time, &fields);
    fields.tm_year = year - 1900;
    const time_t moved = timegm(&fields);
    FUZZ_CHECK(ParseHttpDate(Written("%A, %d-%b-%y %H:%M:%S GMT", moved)) == moved);
  }
}

}  // namespace mpbp::fuzz
