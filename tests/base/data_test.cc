// The memory log, UTF-8, wildcards.
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
  // Between blanks, with the number of marks that take the place of each.
  const std::pair<const char*, int> broken[] = {
      {"\x80", 1},     {"\xc0\x80", 2},        {"\xc3", 1},         {"\xe0\x9f\xbf", 3},
      {"\xe2\x82", 1}, {"\xed\xa0\x80", 3},    {"\xf0\x9f\x98", 1}, {"\xf0\x8f\xbf\xbf", 4},
      {"\xff", 1},     {"\xf4\x90\x80\x80", 4}};
  for (const auto& [bytes, marks] : broken) {
    std::string marked;
    for (int i = 0; i < marks; ++i) marked += m;
    for (const std::string after : {"", "("}) {
      EXPECT_EQ(ReplaceInvalidUtf8(bytes + after), marked + after) << testing::PrintToString(bytes);
      EXPECT_FALSE(IsValidUtf8(bytes + after)) << testing::PrintToString(bytes);
    }
  }
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters("a\xef\xbf\xbe\xef\xb7\x90\xef\xb7\xaf"
                                               "\xf0\x9f\xbf\xbe\xf4\x8f\xbf\xbf\xff"),
            "a" + m + m + m + m + m + m);
  const std::string around = "\xef\xb7\x8f\xef\xb7\xb0\xef\xbf\xbd\xf0\x9f\x98\x80\xc3\xa9";
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters(around), around);
}

TEST(MatchesWildcardTest, AStarStandsForAnyTextAndManyTakeNoExponentialTime) {
  using Pairs = std::vector<std::pair<const char*, const char*>>;
  for (const auto& [text, pattern] : Pairs{{"a.CORP.example", "*.corp.EXAMPLE"},
                                           {"", ""},
                                           {"", "*"},
                                           {"x*", "**"},
                                           {"abab", "*ab"}}) {
    EXPECT_TRUE(MatchesWildcard(text, pattern)) << text << " / " << pattern;
  }
  for (const auto& [text, pattern] :
       Pairs{{"corp.example", "*.corp.example"}, {"x", ""}, {"x", "**"}, {"aba", "*ab"}}) {
    EXPECT_FALSE(MatchesWildcard(text, pattern)) << text << " / " << pattern;
  }
  std::string hostile;
  for (int i = 0; i < 30; ++i) hostile += "*a";
  EXPECT_FALSE(MatchesWildcard(std::string(200000, 'a'), hostile + "b"));
}

}  // namespace
}  // namespace mpbp
