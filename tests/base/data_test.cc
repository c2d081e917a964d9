// The memory log, UTF-8, wildcards, the processor's
// description.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/memorylog.h"
#include "base/stringutils.h"
#include "base/utf8.h"

namespace mpbp {
namespace {

TEST(MemoryLogTest, KeepsTheLastBytesOfALongLogAndNoMoreThanAChunkAbove) {
  MemoryLog log;
  std::string expected("a\0b", 3);
  ASSERT_EQ(StreamResult::SR_SUCCESS, log.WriteAll(expected));
  EXPECT_EQ(expected, log.Tail(10));
  // Portions that fall across chunks, and one longer than what is kept.
  for (int i = 0; i < 1300; ++i) {
    std::string text;
    for (int line = 0; line < (i == 1299 ? 1'200'000 : 1000); ++line) {
      text += std::to_string(10'000'000 + i * 1000 + line) + "\n";
    }
    ASSERT_EQ(StreamResult::SR_SUCCESS, log.WriteAll(text));
    expected += text;
    if (i % 50 != 0 && i < 1290) continue;
    const size_t kept = log.Tail(std::string::npos).size();
    ASSERT_GE(kept, std::min(expected.size(), MemoryLog::kKeptBytes));
    ASSERT_LT(kept, MemoryLog::kKeptBytes + MemoryLog::kChunkSize);
    ASSERT_TRUE(expected.ends_with(log.Tail(MemoryLog::kKeptBytes)));
  }
  EXPECT_EQ(expected.size(), log.size());
}

TEST(Utf8Test, EveryBrokenSequenceAndOnRequestNoncharactersAreMarked) {
  const std::string m = "\xEF\xBF\xBD";
  for (const std::string& text : {std::string("a\0b", 3), std::string("\x7f\xc2\x80\xdf\xbf"),
                                  std::string("\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf"),
                                  std::string("\xf0\x90\x80\x80\xf4\x8f\xbf\xbf")}) {
    EXPECT_EQ(ReplaceInvalidUtf8(text), text);
    EXPECT_TRUE(IsValidUtf8(text));
  }
  const std::pair<const char*, std::string> kBroken[] = {{"\x80", m},
                                                         {"\xc0\x80", m + m},
                                                         {"\xc3", m},
                                                         {"\xc3(", m + "("},
                                                         {"\xe0\x9f\xbf", m + m + m},
                                                         {"\xed\xa0\x80", m + m + m},
                                                         {"\xe2\x82", m},
                                                         {"\xf0\x9f\x98", m},
                                                         {"\xf0\x8f\xbf\xbf", m + m + m + m},
                                                         {"\xff", m},
                                                         {"\xf4\x90\x80\x80", m + m + m + m}};
  for (const auto& [text, marked] : kBroken) {
    EXPECT_EQ(ReplaceInvalidUtf8(text), marked) << testing::PrintToString(text);
    EXPECT_FALSE(IsValidUtf8(text)) << testing::PrintToString(text);
  }
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters("a\xef\xbf\xbe\xef\xb7\x90\xef\xb7\xaf"
                                               "\xf0\x9f\xbf\xbe\xf4\x8f\xbf\xbf\xff"),
            "a" + m + m + m + m + m + m);
  const std::string around = "\xef\xb7\x8f\xef\xb7\xb0\xef\xbf\xbd\xf0\x9f\x98\x80\xc3\xa9";
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters(around), around);
}

TEST(MatchesWildcardTest, AStarStandsForAnyTextAndManyTakeNoExponentialTime) {
  const struct {
    const char* text;
    const char* pattern;
    bool matches;
  } kCases[] = {{"a.CORP.example", "*.corp.EXAMPLE", true},
                {"corp.example", "*.corp.example", false},
                {"", "", true},
                {"", "*", true},
                {"x", "", false},
                {"x*", "**", true},
                {"x", "**", false},
                {"abab", "*ab", true},
                {"aba", "*ab", false}};
  for (const auto& test_case : kCases) {
    EXPECT_EQ(test_case.matches, MatchesWildcard(test_case.text, test_case.pattern))
        << test_case.text << " / " << test_case.pattern;
  }
  std::string hostile;
  for (int i = 0; i < 30; ++i) hostile += "*a";
  EXPECT_FALSE(MatchesWildcard(std::string(200000, 'a'), hostile + "b"));
}

}  // namespace
}  // namespace mpbp
