// The memory log, and how long a wildcard may take.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/memorylog.h"
#include "base/stringutils.h"

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

TEST(MatchesWildcardTest, ManyStarsTakeNoExponentialTime) {
  std::string hostile;
  for (int i = 0; i < 30; ++i) hostile += "*a";
  EXPECT_FALSE(MatchesWildcard(std::string(200000, 'a'), hostile + "b"));
}

}  // namespace
}  // namespace mpbp
