#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>

#include "base/logging.h"
#include "plugin/pluginutils.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::ReadFile;
using testing::AllOf;
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

  // Sets logging up by these options and writes a line of each severity; the console's text.
  std::string SetUpAndLog(const std::string& options) {
    app_data_.WriteOptions(options);
    testing::internal::CaptureStderr();
    SetupPluginLogging("pluginppapi", "mpbppapiplugin.log", "5.1.7.0");
    LOG(LS_VERBOSE) << "a verbose line";
    LOG(LS_INFO) << "an info line";
    LOG(LS_ERROR) << "an error line";
    return testing::internal::GetCapturedStderr();
  }
  std::string DefaultFile() const { return ReadFile(app_data_.folder() + "mpbppapiplugin.log"); }

  test::ScopedAppData app_data_;
};

TEST_F(PluginLoggingTest, WithoutOptionsTheDefaultFileAndTheStoreGetInfoUntilTheRelease) {
  EXPECT_FALSE(PluginLogStore());
  const std::string console = SetUpAndLog("");
  EXPECT_THAT(console, HasSubstr("No bp log location saved, using default.\n"));
  const std::string text = DefaultFile();
  EXPECT_THAT(text,
              ContainsRegex("^\\[[0-9]{3}:[0-9]{3}\\] Log begun [0-9-]{10} [0-9:]{8} "
                            "[+-][0-9]{4} \\([^)]+\\), version 5\\.1\\.7\\.0, process [0-9]+\n"));
  EXPECT_THAT(text, ContainsRegex("\n\\[[0-9]{3}:[0-9]{3}\\] Cpu: [0-9]+\\.[0-9]+\\.[0-9]+, "
                                  "x[0-9]+, [0-9]+Mhz, [0-9]+MB\n"));
  EXPECT_THAT(text, AllOf(HasSubstr("] an info line\n"), Not(HasSubstr("a verbose line"))));
  EXPECT_THAT(console, HasSubstr(text));
  const std::shared_ptr<MemoryLog> store = PluginLogStore();
  ASSERT_TRUE(store);
  EXPECT_EQ(text, store->Tail(1 << 20));

  ReleasePluginLog();
  EXPECT_FALSE(PluginLogStore());
  EXPECT_EQ(1, store.use_count());
  LogMessage::LogToDebug(LS_NONE);
  LOG(LS_ERROR) << "after the release";
  EXPECT_EQ(text, DefaultFile());
}

TEST_F(PluginLoggingTest, TheLogBeginsWithTheFolderAndTheOptionsInForceAndNothingElseOfTheFile) {
  SetUpAndLog("");
  const std::string path = app_data_.folder() + "mpbppapiplugin.log";
  EXPECT_THAT(DefaultFile(),
              AllOf(HasSubstr("Configuration folder: " + app_data_.folder() + "\n"),
                    HasSubstr("Option install_dir=/opt/murmel/parlplugin/ (default)\n"),
                    HasSubstr("_log_path=" + path + " (default)\n")));
  SetUpAndLog("install_dir=/a b\r\nplugin_enable_corp_host=1\r\nno line\npassword=x7\n");
  EXPECT_THAT(DefaultFile(), AllOf(HasSubstr("Option install_dir=/a b\n"),
                                   HasSubstr("Option plugin_enable_corp_host=1\n"),
                                   HasSubstr("Ignoring malformed line in "), Not(HasSubstr("x7"))));
  ASSERT_TRUE(Filesystem::DeleteFile(app_data_.folder() + "options"));
  EXPECT_EQ(0, mkfifo((app_data_.folder() + "options").c_str(), 0600));
  testing::internal::CaptureStderr();
  SetupPluginLogging("pluginppapi", "mpbppapiplugin.log", "5.1.7.0");
  testing::internal::GetCapturedStderr();
  EXPECT_THAT(DefaultFile(), HasSubstr("The options file cannot be read, path=" +
                                       app_data_.folder() + "options : [0x00000006] "));
}

TEST_F(PluginLoggingTest, ARelativeFolderOrNoneIsToldOnStandardError) {
  const std::string up = std::filesystem::relative(app_data_.dir().path());
  {
    const test::ScopedEnv relative("XDG_CONFIG_HOME", up.c_str());
    EXPECT_THAT(SetUpAndLog(""), HasSubstr("The configuration folder is relative, "));
    EXPECT_THAT(DefaultFile(), HasSubstr("path=" + up + "/murmel-murmelparlplugin/\n"));
  }
  const test::ScopedEnv file("XDG_CONFIG_HOME", "/dev/null");
  EXPECT_THAT(SetUpAndLog(""),
              AllOf(HasSubstr("The configuration folder cannot be made, "
                              "path=/dev/null/murmel-murmelparlplugin/ : [0x00000014] "),
                    HasSubstr("There is no configuration folder: no log file is written\n")));
}

TEST_F(PluginLoggingTest, AFullDiskIsToldOnce) {
  const std::string console = SetUpAndLog("pluginppapi_log_path=/dev/full\n");
  const std::string complaint = "The log file cannot be written, path=/dev/full : [0x0000001c] ";
  EXPECT_THAT(console, HasSubstr(complaint));
  EXPECT_EQ(console.find(complaint), console.rfind(complaint));
  EXPECT_THAT(PluginLogStore()->Tail(1 << 20), AllOf(HasSubstr(complaint), HasSubstr("an info")));
}

TEST_F(PluginLoggingTest, TheLevelOptionSetsFileAndStoreAndTheConsoleShowsInfoAtLeast) {
  EXPECT_THAT(SetUpAndLog("pluginppapi_log_level=LS_ERROR\n"), HasSubstr("an info line"));
  EXPECT_THAT(DefaultFile(), AllOf(Not(HasSubstr("an info line")), HasSubstr("an error line")));
  EXPECT_EQ(DefaultFile(), PluginLogStore()->Tail(1 << 20));
  EXPECT_THAT(SetUpAndLog("pluginppapi_log_level=1\n"), HasSubstr("a verbose line"));
  EXPECT_THAT(DefaultFile(), HasSubstr("a verbose line"));
  EXPECT_THAT(
      SetUpAndLog("pluginppapi_log_level=unknown\n"),
      HasSubstr("Unknown level \"unknown\" in pluginppapi_log_level of " + app_data_.folder() +
                "options: nothing is written to " + app_data_.folder() + "mpbppapiplugin.log\n"));
  EXPECT_EQ("", DefaultFile());
}

TEST_F(PluginLoggingTest, ThePathOptionIsStampedAndAFileThatCannotBeWrittenIsReported) {
  SetUpAndLog("pluginppapi_log_path=" + app_data_.dir().path() + "/deep/x-%TIMESTAMP%.log\n");
  const time_t start = LogMessage::WallClockStartTime();
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", localtime(&start));
  EXPECT_THAT(ReadFile(app_data_.dir().path() + "/deep/x-" + stamp + ".log"),
              HasSubstr("an info line"));
  EXPECT_EQ("", DefaultFile());
  ReleasePluginLog();

  const std::string fifo = app_data_.dir() / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  for (const std::string& path : {fifo, fifo + "/below.log", app_data_.dir().path() + "/"}) {
    const std::string console = SetUpAndLog("pluginppapi_log_path=" + path + "\n");
    EXPECT_THAT(console, AllOf(HasSubstr("Unable to write to logfile:" + path + "\n"),
                               HasSubstr("The log file cannot be opened, path=" + path + " : [0x"),
                               HasSubstr("an info line")));
    EXPECT_EQ(path.ends_with("below.log"),
              console.find("Unable to create directory for logfile: " + path) != std::string::npos);
    EXPECT_TRUE(PluginLogStore() && PluginLogStore()->Tail(100).empty());
  }
}

}  // namespace
}  // namespace mpbp
