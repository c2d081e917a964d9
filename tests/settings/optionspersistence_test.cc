#include "optionspersistence.h"

#include <gtest/gtest.h>

#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::ReadFile;
using test::ScopedAppData;
using test::WriteFile;

TEST(OptionsPersistenceTest, EveryChangeIsSavedAtOnce) {
  ScopedAppData app_data;
  app_data.WriteOptions("b=2\n");
  const std::string path = app_data.folder() + "options";
  const auto options = CreateOptionsPersistence();
  EXPECT_TRUE(options->SetStringValue("a", "x"));
  EXPECT_EQ("a=x\nb=2\n", ReadFile(path));
  EXPECT_TRUE(options->SetIntValue("c", 3));
  EXPECT_TRUE(options->RemoveValue("b"));
  EXPECT_EQ("a=x\nc=3\n", ReadFile(path));
  WriteFile(path, "untouched");
  EXPECT_FALSE(options->SetStringValue("a", "illegal\n"));
  EXPECT_EQ("untouched", ReadFile(path));
}

TEST(OptionsPersistenceTest, EachObjectReadsTheFileAfreshAndOnce) {
  ScopedAppData app_data;
  CapturedLog log;
  int32_t value = 0;
  const auto first = CreateOptionsPersistence();
  EXPECT_FALSE(first->GetIntValue("n", &value));
  EXPECT_TRUE(log.Contains("Error while loading options; some may be missing\n"));
  log.Clear();
  app_data.WriteOptions("n=5\n");
  EXPECT_FALSE(first->GetIntValue("n", &value));
  EXPECT_FALSE(log.Contains("Error while loading"));
  EXPECT_TRUE(CreateOptionsPersistence()->GetIntValue("n", &value));
  EXPECT_EQ(5, value);
}

TEST(OptionsPersistenceTest, WithoutAFolderEveryOperationFailsUntilThereIsOne) {
  ScopedAppData app_data;
  const std::string blocker = app_data.dir() / "murmel-murmelparlplugin";
  WriteFile(blocker, "");
  CapturedLog log;
  const auto options = CreateOptionsPersistence();
  std::string text;
  int32_t number = 0;
  EXPECT_FALSE(options->GetStringValue("a", &text));
  EXPECT_FALSE(options->GetIntValue("a", &number));
  EXPECT_FALSE(options->SetStringValue("a", "b"));
  EXPECT_FALSE(options->SetIntValue("a", 1));
  EXPECT_FALSE(options->RemoveValue("a"));
  EXPECT_EQ(5, log.Count("Could not get app data folder; cannot do any options storage!"));
  ASSERT_TRUE(Filesystem::DeleteFile(blocker));
  EXPECT_TRUE(options->SetStringValue("a", "b"));
}

}  // namespace
}  // namespace mpbp
