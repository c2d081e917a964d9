#include <gtest/gtest.h>
#include <sys/stat.h>

#include "plugin/pluginutils.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"
#include "tests/support/wait_until.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::ReadFile;
using test::ScopedAppData;
using test::WaitUntil;
using test::WriteFile;

TEST(LauncherTest, StartsTheEngineOfTheConfiguredFolderWithoutArguments) {
  ScopedAppData app_data;
  CapturedLog log;
  const std::string folder = app_data.dir() / "engine dir";
  const std::string path = folder + "/MurmelParlPlugin";
  const std::string report = app_data.dir() / "report";
  std::filesystem::create_directories(folder);
  WriteFile(path, "#!/bin/sh\necho \"$0 $# $XDG_CONFIG_HOME\" > " + report + ".part; mv " + report +
                      ".part " + report + "\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0755));
  for (const std::string& install_dir : {folder, folder + "/"}) {
    app_data.WriteOptions("install_dir=" + install_dir + "\n");
    log.Clear();
    int error = -7;
    EXPECT_TRUE(LaunchEngine(&error));
    EXPECT_EQ(0, error);
    EXPECT_TRUE(log.text().find("Starting Quern\n") < log.text().find("Started MurmelParlPlugin"));
    EXPECT_TRUE(log.Contains("Started MurmelParlPlugin, path=" + path + "\n"));
    ASSERT_TRUE(WaitUntil([&report] { return !ReadFile(report).empty(); }, 20000));
    EXPECT_EQ(path + " 0 " + app_data.dir().path() + "\n", ReadFile(report));
    std::filesystem::remove(report);
  }
}

TEST(LauncherTest, WithoutAFolderTheDefaultOneIsTriedAndItsAbsenceIsNotSeen) {
  const std::string default_path = "/opt/murmel/parlplugin/MurmelParlPlugin";
  if (Filesystem::IsFile(default_path)) GTEST_SKIP() << "an engine is installed";
  ScopedAppData app_data;
  app_data.WriteOptions("install_dir=\n");
  CapturedLog log;
  int error = -7;
  EXPECT_TRUE(LaunchEngine(&error));
  EXPECT_EQ(0, error);
  EXPECT_TRUE(log.Contains("Failed to get MurmelParlPlugin path. Trying default.\n"));
  EXPECT_TRUE(log.Contains("Started MurmelParlPlugin, path=" + default_path + "\n"));
}

}  // namespace
}  // namespace mpbp
