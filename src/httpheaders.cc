#include "httpheaders.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>
#include <optional>

#include "base/stringutils.h"

namespace mpbp {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kTmYearBase = 1900;

struct DateFields {
  int day = 0;
  char month[4] = "";
  int year = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

bool ScanFixdate(const char* text, DateFields& f) {
  int end = 0;
  sscanf(text, "%*3[A-Za-z], %2d %3[A-Za-z] %4d %2d:%2d:%2d GMT%n", &f.day, f.month, &f.year,
         &f.hour, &f.minute, &f.second, &end);
  return end > 0 && text[end] == '\0';
}

bool ScanRfc850(const char* text, DateFields& f) {
  int end = 0;
  sscanf(text, "%*9[A-Za-z], %2d-%3[A-Za-z]-%2d %2d:%2d:%2d GMT%n", &f.day, f.month, &f.year,
         &f.hour, &f.minute, &f.second, &end);
  if (end == 0 || text[end] != '\0') return false;
  const time_t now = time(nullptr);
  tm today{};
  gmtime_r(&now, &today);
  const int this_year = today.tm_year + kTmYearBase;
  f.year += this_year - this_year % 100;
  if (f.year > this_year + 50) f.year -= 100;
  return true;
}

bool ScanAsctime(const char* text, DateFields& f) {
  int end = 0;
  sscanf(text, "%*3[A-Za-z] %3[A-Za-z] %2d %2d:%2d:%2d %4d%n", f.month, &f.day, &f.hour, &f.minute,
         &f.second, &f.year, &end);
  return end > 0 && text[end] == '\0';
}

bool IsLetter(char c) { return isalpha(static_cast<unsigned char>(c)) != 0; }
bool IsDigit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }

// No number in a date has a sign, but scanning would accept one. A "-" between a number and a word
// is a separator.
bool HasSign(std::string_view text) {
  for (size_t i = text.find_first_of("+-"); i < text.size(); i = text.find_first_of("+-", i + 1)) {
    const char before = i > 0 ? text[i - 1] : ' ';
    const char after = i + 1 < text.size() ? text[i + 1] : ' ';
    const bool separates =
        (IsDigit(before) && IsLetter(after)) || (IsLetter(before) && IsDigit(after));
    if (text[i] == '+' || !separates) return true;
  }
  return false;
}

// Nothing when there is no such day or time. A leap second counts as the one after it.
std::optional<int64_t> ToSeconds(const DateFields& fields) {
  const auto month = std::find(kMonths.begin(), kMonths.end(), fields.month);
  if (month == kMonths.end() || fields.hour > 23 || fields.minute > 59 || fields.second > 60) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date(
      std::chrono::year(fields.year),
      std::chrono::month(static_cast<unsigned>(month - kMonths.begin()) + 1),
      std::chrono::day(static_cast<unsigned>(fields.day)));
  if (!date.ok()) return std::nullopt;
  const std::chrono::seconds seconds =
      std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(fields.hour) +
      std::chrono::minutes(fields.minute) + std::chrono::seconds(fields.second);
  return seconds.count();
}

}  // namespace

HttpHeaders ParseHttpHeaders(std::string_view block) {
  HttpHeaders headers;
  while (!block.empty()) {
    const size_t end = block.find('\n');
    const std::string_view line = block.substr(0, end);
    block.remove_prefix(end == std::string_view::npos ? block.size() : end + 1);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    headers.emplace(LowerCase(TrimWhitespace(line.substr(0, colon))),
                    TrimWhitespace(line.substr(colon + 1)));
  }
  return headers;
}

uint32_t ParseHttpDate(std::string_view date) {
  const std::string text(TrimWhitespace(date));
  DateFields fields;
  if (HasSign(text) || text.find('\0') != std::string::npos) return 0;
  if (!ScanFixdate(text.c_str(), fields) && !ScanRfc850(text.c_str(), fields) &&
      !ScanAsctime(text.c_str(), fields)) {
    return 0;
  }
  const int64_t seconds = ToSeconds(fields).value_or(0);
  if (seconds < 0 || seconds > std::numeric_limits<uint32_t>::max()) return 0;
  return static_cast<uint32_t>(seconds);
}

}  // namespace mpbp
