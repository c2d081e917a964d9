#include "base/utf8.h"

#include <gtest/gtest.h>

namespace mpbp {
namespace {

constexpr char kMark[] = "\xEF\xBF\xBD";

TEST(Utf8, KnowsWellFormedFromBroken) {
  for (const std::string& text : {std::string("a\0b", 3), std::string("\x7f\xc2\x80\xdf\xbf"),
                                  std::string("\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf"),
                                  std::string("\xf0\x90\x80\x80\xf4\x8f\xbf\xbf")}) {
    EXPECT_TRUE(IsValidUtf8(text)) << testing::PrintToString(text);
    EXPECT_EQ(ReplaceInvalidUtf8(text), text);
  }
  for (const char* const text :
       {"\x80", "\xc0\x80", "\xc1\xbf", "\xc3", "\xc3(", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xe2\x82",
        "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff"}) {
    EXPECT_FALSE(IsValidUtf8(text)) << testing::PrintToString(text);
    EXPECT_TRUE(IsValidUtf8(ReplaceInvalidUtf8(text))) << testing::PrintToString(text);
  }
}

TEST(Utf8, MarksEachBrokenRunOnce) {
  const std::string mark = kMark;
  EXPECT_EQ(ReplaceInvalidUtf8("a\xe2\x82z\xff\xff"), "a" + mark + "z" + mark + mark);
  EXPECT_EQ(ReplaceInvalidUtf8("\xf0\x9f\x98"), mark);
  EXPECT_EQ(ReplaceInvalidUtf8("\xed\xa0\x80"), mark + mark + mark);
}

TEST(Utf8, MarksNoncharactersOnRequest) {
  const std::string mark = kMark;
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters("a\xef\xbf\xbe\xef\xbf\xbf\xef\xb7\x90\xef\xb7\xaf"
                                               "\xf0\x9f\xbf\xbe\xf4\x8f\xbf\xbf\xff"),
            "a" + mark + mark + mark + mark + mark + mark + mark);
  const std::string around = "\xef\xb7\x8f\xef\xb7\xb0\xef\xbf\xbd\xf0\x9f\x98\x80\xc3\xa9";
  EXPECT_EQ(ReplaceInvalidUtf8AndNoncharacters(around), around);
}

}  // namespace
}  // namespace mpbp
