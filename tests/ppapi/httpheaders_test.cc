#include "httpheaders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

namespace mpbp {
namespace {

TEST(HttpHeadersTest, NamesAreInLowerCaseAndTheFirstOfANameWins) {
  EXPECT_EQ(ParseHttpHeaders("Last-MODIFIED:  a:b \r\nno colon\nX:1\nx:2\nEmpty:\n: nameless"),
            (HttpHeaders{{"last-modified", "a:b"}, {"x", "1"}, {"empty", ""}, {"", "nameless"}}));
  EXPECT_EQ(ParseHttpHeaders(""), HttpHeaders());
}

TEST(HttpHeadersTest, ADateCountsInItsThreeForms) {
  const std::pair<const char*, uint32_t> cases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},
      {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
      {"Sun Nov  6 08:49:37 1994", 784111777},
      {" Sun, 06 Nov 1994 08:49:37 GMT\r", 784111777},
      {"Wed, 31 Dec 1969 23:59:59 GMT", 0},
      {"Sun, 07 Feb 2106 06:28:15 GMT", 4294967295},  // the last one that fits
      {"Sun, 07 Feb 2106 06:28:16 GMT", 0},
      {"Wed, 29 Feb 2023 12:00:00 GMT", 0},
      {"Sat, 31 Dec 2016 23:59:60 GMT", 1483228800},  // a leap second
      {"Sat, 31 Dec 2016 24:00:00 GMT", 0},
      {"Sat, 00 Dec 2016 12:00:00 GMT", 0},
      {"Sun, 06 Nov 1994 08:49:37 GMT and more", 0},
      {"Sun, 06 Nov 1994 08:49:37 CET", 0},
      {"Sun, 06 Nov 1994 +8:49:37 GMT", 0},
      {"1994-11-06T08:49:37Z", 0},
      {"", 0},
  };
  for (const auto& [date, seconds] : cases) EXPECT_EQ(ParseHttpDate(date), seconds) << date;
}

// Of the two years that two digits can mean, the later one that is at most fifty years ahead.
TEST(HttpHeadersTest, AYearOfTwoDigitsIsAtMostFiftyYearsAhead) {
  const time_t now = time(nullptr);
  tm today{};
  gmtime_r(&now, &today);
  for (const int ahead : {-49, -1, 0, 1, 50}) {
    tm date{};
    date.tm_year = today.tm_year + ahead;
    date.tm_mday = 15;
    char text[64];
    strftime(text, sizeof text, "%A, %d-%b-%y 00:00:00 GMT", &date);
    const time_t seconds = timegm(&date);
    EXPECT_EQ(ParseHttpDate(text), seconds < 0 ? 0u : static_cast<uint32_t>(seconds)) << text;
  }
}

}  // namespace
}  // namespace mpbp
