#include "base/optionsfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::ReadFile;
using test::TempDir;
using test::WriteFile;

class OptionsFileTest : public testing::Test {
 protected:
  std::string Value(const std::string& name) const {
    std::string value = "(none)";
    return options_.GetStringValue(name, &value) ? value : "(failed)";
  }

  TempDir dir_;
  std::string path_ = dir_ / "options";
  OptionsFile options_{path_};
  CapturedLog log_;
};

TEST_F(OptionsFileTest, LoadsSetsAndSavesSortedLines) {
  WriteFile(path_, "b=1\nx=a=b\n=empty name\n\nno separator\nb=2\nempty=\nlast=\r");
  ASSERT_TRUE(options_.Load());
  EXPECT_EQ(2, log_.Count("Ignoring malformed line in " + path_));
  EXPECT_EQ("a=b", Value("x"));
  EXPECT_EQ("empty name", Value(""));
  EXPECT_EQ("2", Value("b"));
  EXPECT_EQ("", Value("empty"));
  EXPECT_EQ("(failed)", Value("no separator"));
  EXPECT_TRUE(options_.SetIntValue("n", -12));
  EXPECT_TRUE(options_.SetStringValue("B", "with = and \"quotes\""));
  EXPECT_TRUE(options_.RemoveValue("empty"));
  EXPECT_TRUE(options_.RemoveValue("never there"));
  ASSERT_TRUE(options_.Save());
  EXPECT_EQ("=empty name\nB=with = and \"quotes\"\nb=2\nlast=\r\nn=-12\nx=a=b\n", ReadFile(path_));
}

TEST_F(OptionsFileTest, IllegalNamesAndValuesAreRefused) {
  for (const std::string name : {"a\nb", "a\\b", "a=b"}) {
    log_.Clear();
    int32_t number = 0;
    EXPECT_FALSE(options_.SetStringValue(name, "v"));
    EXPECT_FALSE(options_.SetIntValue(name, 1));
    EXPECT_FALSE(options_.GetIntValue(name, &number));
    EXPECT_FALSE(options_.RemoveValue(name));
    EXPECT_EQ("(failed)", Value(name));
    EXPECT_EQ(5, log_.Count("Ignoring operation for illegal option " + name));
  }
  EXPECT_FALSE(options_.SetStringValue("name", "a\nb"));
  EXPECT_FALSE(options_.SetStringValue("name", "a\\b"));
  EXPECT_EQ(2, log_.Count("Ignoring operation for illegal value a"));
  EXPECT_EQ("(failed)", Value("name"));
}

TEST_F(OptionsFileTest, IntegersAreReadFromTheValuesBeginning) {
  const struct {
    const char* text;
    bool valid;
    int32_t number;
  } kCases[] = {{"12abc", true, 12},
                {"  7", true, 7},
                {"-5", true, -5},
                {"+5", true, 5},
                {"2147483647", true, 2147483647},
                {"2147483648", false, 0},
                {"99999999999", false, 0},
                {"abc", false, 0},
                {"", false, 0}};
  for (const auto& test_case : kCases) {
    ASSERT_TRUE(options_.SetStringValue("n", test_case.text));
    int32_t number = 77;
    EXPECT_EQ(test_case.valid, options_.GetIntValue("n", &number)) << test_case.text;
    EXPECT_EQ(test_case.valid ? test_case.number : 77, number) << test_case.text;
  }
}

TEST_F(OptionsFileTest, AMissingFileFailsToLoadAndCanBeSaved) {
  ASSERT_TRUE(options_.SetStringValue("stale", "1"));
  EXPECT_FALSE(options_.Load());
  EXPECT_TRUE(log_.Contains("Could not open file, err=2\n"));
  ASSERT_TRUE(options_.SetStringValue("new", "1"));
  EXPECT_TRUE(options_.Save());
  EXPECT_EQ("new=1\n", ReadFile(path_));
}

TEST_F(OptionsFileTest, WhatCannotBeReadOrWrittenFailsAndSaysSo) {
  OptionsFile folder(dir_.path());
  EXPECT_FALSE(folder.Load());
  EXPECT_TRUE(log_.Contains("Error when reading from file\n"));
  EXPECT_FALSE(folder.Save());
  EXPECT_TRUE(log_.Contains("Could not open file, err=21\n"));
  OptionsFile full("/dev/full");
  ASSERT_TRUE(full.SetStringValue("a", "b"));
  EXPECT_FALSE(full.Save());
  EXPECT_TRUE(log_.Contains("Unable to write to file\n"));
}

TEST_F(OptionsFileTest, AnOverlongFileIsAReadErrorAfterItsFirstLines) {
  std::string text = "first=1\n";
  for (int i = 0; i < 200000; ++i) text += std::to_string(i) + "=abc\n";
  WriteFile(path_, text);
  EXPECT_FALSE(options_.Load());
  EXPECT_TRUE(log_.Contains("Error when reading from file\n"));
  EXPECT_EQ("1", Value("first"));
}

}  // namespace
}  // namespace mpbp
