#include "base/stringutils.h"

#include <gtest/gtest.h>

#include <random>

#include "base/systeminfo.h"

namespace mpbp {
namespace {

// The matcher's meaning, without a bound on its work.
bool MatchesByDefinition(std::string_view text, std::string_view pattern) {
  if (pattern.empty()) return text.empty();
  if (pattern[0] != '*') {
    return !text.empty() && ToUpperAscii(text[0]) == ToUpperAscii(pattern[0]) &&
           MatchesByDefinition(text.substr(1), pattern.substr(1));
  }
  if (pattern.size() == 1) return true;
  for (size_t i = 0; i < text.size(); ++i) {
    if (ToUpperAscii(text[i]) == ToUpperAscii(pattern[1]) &&
        MatchesByDefinition(text.substr(i + 1), pattern.substr(2))) {
      return true;
    }
  }
  return false;
}

TEST(MatchesWildcardTest, AgreesWithItsDefinitionOnAllKindsOfTexts) {
  EXPECT_TRUE(MatchesWildcard("a.CORP.example", "*.corp.EXAMPLE"));
  EXPECT_FALSE(MatchesWildcard("corp.example", "*.corp.example"));
  EXPECT_TRUE(MatchesWildcard("x*", "**"));
  EXPECT_FALSE(MatchesWildcard("x", "**"));
  std::mt19937 random(1);
  const auto make = [&random](const char* alphabet, size_t size, size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& c : text) c = alphabet[random() % size];
    return text;
  };
  int matches = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = make("aAb*", 4, 7);
    const std::string pattern = make("ab**", 4, 6);
    const bool expected = MatchesByDefinition(text, pattern);
    ASSERT_EQ(expected, MatchesWildcard(text, pattern)) << text << " / " << pattern;
    matches += expected;
  }
  EXPECT_GT(matches, 10000);
}

TEST(MatchesWildcardTest, HostileTextsTakeNoExponentialTime) {
  std::string pattern;
  for (int i = 0; i < 30; ++i) pattern += "*a";
  EXPECT_FALSE(MatchesWildcard(std::string(200000, 'a'), pattern + "b"));
}

TEST(SystemInfoTest, CpuInfoTakesTheFirstSectionAndCountsThem) {
  const CpuInfo info = ParseCpuInfo(
      "processor\t: 0\nvendor_id\t: X\ncpu family\t: 6\nmodel\t\t: 58\nmodel name\t: Y 9\n"
      "stepping\t: 9\ncpu MHz\t\t: 3400.999\n\n"
      "processor\t: 1\ncpu family\t: 7\nmodel\t\t: 1\nstepping\t: 1\ncpu MHz\t\t: 100\n");
  EXPECT_EQ(6, info.family);
  EXPECT_EQ(58, info.model);
  EXPECT_EQ(9, info.stepping);
  EXPECT_EQ(3400, info.mhz);
  EXPECT_EQ(2, info.processors);
}

TEST(SystemInfoTest, OddCpuInfoGivesZeros) {
  for (const char* text :
       {"", "no colon", ":", "\n\n:\n", "model : x\ncpu family : 99999999999999999999"}) {
    const CpuInfo info = ParseCpuInfo(text);
    EXPECT_EQ(0, info.family + info.model + info.stepping + info.processors + info.mhz) << text;
  }
}

}  // namespace
}  // namespace mpbp
