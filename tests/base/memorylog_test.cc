#include "base/memorylog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace mpbp {
namespace {

// Text in which every position can be told from its neighbours.
std::string NumberedLines(int first, int count) {
  std::string text;
  for (int i = first; i < first + count; ++i) text += std::to_string(10'000'000 + i) + "\n";
  return text;
}

TEST(MemoryLogTest, KeepsTheLastBytesOfALongLogAndNoMoreThanAChunkAbove) {
  MemoryLog log;
  std::string expected("a\0b", 3);
  ASSERT_EQ(StreamResult::SR_SUCCESS, log.WriteAll(expected));
  EXPECT_EQ(expected, log.Tail(10));
  // Portions of odd sizes, so that they fall across chunks, and one longer than what is kept.
  for (int i = 0; i < 1300; ++i) {
    const std::string text = NumberedLines(i * 1000, i == 1299 ? 1'200'000 : 1000);
    ASSERT_EQ(StreamResult::SR_SUCCESS, log.WriteAll(text));
    expected += text;
    if (i % 50 != 0 && i < 1290) continue;
    const size_t kept = log.Tail(std::string::npos).size();
    ASSERT_GE(kept, std::min(expected.size(), MemoryLog::kKeptBytes));
    ASSERT_LT(kept, MemoryLog::kKeptBytes + MemoryLog::kChunkSize);
    ASSERT_TRUE(expected.ends_with(log.Tail(MemoryLog::kKeptBytes)));
  }
  EXPECT_EQ(expected.size(), log.size());
  EXPECT_EQ(expected.substr(expected.size() - MemoryLog::kKeptBytes),
            log.Tail(MemoryLog::kKeptBytes));
}

}  // namespace
}  // namespace mpbp
