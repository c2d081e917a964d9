#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/logging.h"
#include "logutility.h"
#include "plugin/pluginutils.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::ReadFile;
using test::ScopedAppData;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class PluginLoggingTest : public testing::Test {
 protected:
  ~PluginLoggingTest() override {
    ReleasePluginLog();
    LogMessage::LogToDebug(LS_NONE);
    LogMessage::LogTimestamps(false);
  }

  // Sets logging up and writes a line of each severity; the console's text.
  std::string SetUpAndLog() {
    testing::internal::CaptureStderr();
    SetupPluginLogging("pluginppapi", "mpbppapiplugin.log");
    LOG(LS_VERBOSE) << "a verbose line";
    LOG(LS_INFO) << "an info line";
    LOG(LS_ERROR) << "an error line";
    return testing::internal::GetCapturedStderr();
  }

  ScopedAppData app_data_;
  const std::string default_path_ = app_data_.folder() + "mpbppapiplugin.log";
};

TEST_F(PluginLoggingTest, WithoutOptionsTheDefaultFileAndTheStoreGetInfo) {
  const std::string console = SetUpAndLog();
  EXPECT_THAT(console, HasSubstr("No bp log location saved, using default.\n"));
  const std::string text = ReadFile(default_path_);
  EXPECT_THAT(text, ContainsRegex("^\\[[0-9]{3}:[0-9]{3}\\] Cpu: [0-9]+\\.[0-9]+\\.[0-9]+, "
                                  "x[0-9]+, [0-9]+Mhz, [0-9]+MB\n"));
  EXPECT_THAT(text, HasSubstr("] Computer model: "));
  EXPECT_THAT(text, HasSubstr("] an info line\n"));
  EXPECT_THAT(text, Not(HasSubstr("a verbose line")));
  EXPECT_THAT(console, HasSubstr(text));
  ASSERT_TRUE(PluginLogStore());
  EXPECT_EQ(text, PluginLogStore()->Tail(1 << 20));
}

TEST_F(PluginLoggingTest, TheLevelOptionSetsFileAndStoreAndTheConsoleShowsInfoAtLeast) {
  app_data_.WriteOptions("pluginppapi_log_level=LS_ERROR\n");
  std::string console = SetUpAndLog();
  EXPECT_THAT(console, HasSubstr("an info line"));
  EXPECT_THAT(ReadFile(default_path_), Not(HasSubstr("an info line")));
  EXPECT_THAT(ReadFile(default_path_), HasSubstr("an error line"));
  EXPECT_EQ(ReadFile(default_path_), PluginLogStore()->Tail(1 << 20));

  app_data_.WriteOptions("pluginppapi_log_level=1\n");
  console = SetUpAndLog();
  EXPECT_THAT(console, HasSubstr("a verbose line"));
  EXPECT_THAT(ReadFile(default_path_), HasSubstr("a verbose line"));

  app_data_.WriteOptions("pluginppapi_log_level=unknown\n");
  SetUpAndLog();
  EXPECT_EQ("", ReadFile(default_path_));
}

TEST_F(PluginLoggingTest, ThePathOptionIsStampedAndItsFolderCreated) {
  const std::string configured = app_data_.dir() / "deep/x-%TIMESTAMP%.log";
  app_data_.WriteOptions("pluginppapi_log_path=" + configured + "\n");
  SetUpAndLog();
  const std::string path = ReplaceTimestamp(configured);
  EXPECT_NE(configured, path);
  EXPECT_THAT(ReadFile(path), HasSubstr("an info line"));
  EXPECT_EQ(-1, test::FileMode(default_path_));
}

TEST_F(PluginLoggingTest, AFileThatCannotBeWrittenIsReportedAndNothingWaits) {
  const std::string fifo = app_data_.dir() / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  for (const std::string& path : {fifo, fifo + "/below.log", app_data_.dir().path() + "/"}) {
    app_data_.WriteOptions("pluginppapi_log_path=" + path + "\n");
    const std::string console = SetUpAndLog();
    EXPECT_THAT(console, HasSubstr("Unable to write to logfile:" + path + "\n"));
    EXPECT_EQ(path.ends_with("below.log"),
              console.find("Unable to create directory for logfile: " + path) != std::string::npos);
    EXPECT_THAT(console, HasSubstr("an info line"));
    ASSERT_TRUE(PluginLogStore());
    EXPECT_EQ("", PluginLogStore()->Tail(100));
  }
}

TEST_F(PluginLoggingTest, ReleaseLetsGoOfEverythingAndTheNextSetupStartsClean) {
  EXPECT_FALSE(PluginLogStore());
  SetUpAndLog();
  const std::shared_ptr<MemoryLog> first = PluginLogStore();
  ReleasePluginLog();
  EXPECT_FALSE(PluginLogStore());
  EXPECT_EQ(1, first.use_count());
  LogMessage::LogToDebug(LS_NONE);
  const std::string before = ReadFile(default_path_);
  LOG(LS_ERROR) << "after the release";
  EXPECT_EQ(before, ReadFile(default_path_));
  SetUpAndLog();
  EXPECT_NE(first, PluginLogStore());
  EXPECT_EQ(ReadFile(default_path_), PluginLogStore()->Tail(1 << 20));
}

}  // namespace
}  // namespace mpbp
