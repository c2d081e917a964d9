#include "plugin/httpheaders.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <limits>
#include <optional>

namespace mpbp {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kTmYearBase = 1900;

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

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

std::optional<tm> ToTm(const DateFields& fields) {
  tm result{};
  size_t month = 0;
  while (month < kMonths.size() && kMonths[month] != fields.month) ++month;
  const bool valid = month < kMonths.size() && fields.day >= 1 && fields.day <= 31 &&
                     fields.hour >= 0 && fields.hour < 24 && fields.minute >= 0 &&
                     fields.minute < 60 && fields.second >= 0 && fields.second <= 60;
  if (!valid) return std::nullopt;
  result.tm_year = fields.year - kTmYearBase;
  result.tm_mon = static_cast<int>(month);
  result.tm_mday = fields.day;
  result.tm_hour = fields.hour;
  result.tm_min = fields.minute;
  result.tm_sec = fields.second;
  return result;
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
    headers.emplace(LowerCase(Trim(line.substr(0, colon))), Trim(line.substr(colon + 1)));
  }
  return headers;
}

uint32_t ParseHttpDate(std::string_view date) {
  const std::string text(Trim(date));
  DateFields fields;
  if (!ScanFixdate(text.c_str(), fields) && !ScanRfc850(text.c_str(), fields) &&
      !ScanAsctime(text.c_str(), fields)) {
    return 0;
  }
  std::optional<tm> parts = ToTm(fields);
  if (!parts) return 0;
  const int day = parts->tm_mday;
  const time_t seconds = timegm(&*parts);
  if (parts->tm_mday != day) return 0;  // a day that its month does not have
  if (seconds < 0 || seconds > std::numeric_limits<uint32_t>::max()) return 0;
  return static_cast<uint32_t>(seconds);
}

}  // namespace mpbp
