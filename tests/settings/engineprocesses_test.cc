#include "engineprocesses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "plugin/pluginutils.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_env.h"
#include "tests/support/wait_until.h"

namespace mpbp {
namespace {

using test::NamedChild;
using testing::Contains;
using testing::Not;

class EngineProcessesTest : public testing::Test {
 protected:
  static std::vector<int> Found(bool skip_self = true) {
    std::vector<int> pids;
    FindEngineProcesses(skip_self, &pids);
    return pids;
  }

  test::CapturedLog log_;
};

TEST_F(EngineProcessesTest, ProcessesAreFoundByTheFifteenCharactersOfTheirName) {
  const NamedChild engine("MurmelParlPlugin");
  const NamedChild longer("MurmelParlPlugiXYZ");
  EXPECT_THAT(Found(), testing::IsSupersetOf({engine.pid(), longer.pid()}));
  for (const char* name :
       {"MurmelParlPlug", "MurmelParlServer", "Murmel ParlPlug", ") (Murmel", "\n\n\n"}) {
    const NamedChild other(name);
    EXPECT_THAT(Found(), Not(Contains(other.pid()))) << name;
  }
  EXPECT_FALSE(log_.Contains("Unexpected content in /proc/"));
  log_.Clear();
  LogEngineProcesses();
  EXPECT_TRUE(log_.text().starts_with("Quern processes.\n"));
  EXPECT_TRUE(log_.Contains("pid: " + std::to_string(engine.pid()) + "\n"));
}

TEST_F(EngineProcessesTest, TheOwnProcessIsNotSignalled) {
  const NamedChild child("MurmelParlPlugin");
  char name[16] = {};
  ASSERT_EQ(0, prctl(PR_GET_NAME, name));
  ASSERT_EQ(0, prctl(PR_SET_NAME, "MurmelParlPlugin"));
  EXPECT_THAT(Found(false), Contains(getpid()));
  EXPECT_THAT(Found(true), Not(Contains(getpid())));
  EXPECT_GE(KillEngineProcesses(false, true), 1);  // the flag does not matter
  ASSERT_EQ(0, prctl(PR_SET_NAME, name));
}

TEST_F(EngineProcessesTest, IdsUpTo999AreTheSystemsOwn) {
  const std::string path = "/proc/sys/kernel/ns_last_pid";
  const std::string last = test::ReadFile(path);
  if (getpid() < 1000 || std::ofstream(path).write("998", 3).flush().fail()) {
    GTEST_SKIP() << "process ids cannot be chosen";
  }
  const NamedChild low("MurmelParlPlugin");
  const NamedChild next("MurmelParlPlugin");
  test::WriteFile(path, last);
  if (low.pid() != 999 || next.pid() != 1000) GTEST_SKIP() << "these process ids are in use";
  EXPECT_THAT(Found(), testing::ElementsAre(1000));
}

TEST_F(EngineProcessesTest, KillingAsksPolitelyOrAtOnceAndReportsWhatItCannotDo) {
  NamedChild first("MurmelParlPlugin"), second("MurmelParlPlugin");
  const NamedChild other("other");
  EXPECT_GE(KillEngineProcesses(true, false), 2);
  EXPECT_TRUE(log_.Contains("Killing all running quern processes. skip_self? 1, immediate? 0\n"));
  EXPECT_TRUE(log_.Contains("Sending SIGTERM to pid " + std::to_string(first.pid()) + "\n"));
  EXPECT_FALSE(log_.Contains("is still running."));
  for (NamedChild* child : {&first, &second}) EXPECT_EQ(SIGTERM, child->WaitForSignal());

  NamedChild third("MurmelParlPlugin");
  const int pid = third.pid();
  EXPECT_GE(KillEngineProcesses(true, true), 1);
  // Nobody has reaped it, so the second look still sees it.
  EXPECT_TRUE(log_.Contains("pid " + std::to_string(pid) + " is still running.\n"));
  EXPECT_EQ(SIGKILL, third.WaitForSignal());
  EXPECT_EQ(0, kill(other.pid(), 0));
  for (const int none : {pid, 0, -1}) EXPECT_FALSE(SignalProcess(none, false)) << none;
  EXPECT_TRUE(log_.Contains("Error sending signal.\n"));
}

TEST(LauncherTest, StartsTheEngineOfTheConfiguredFolderWithoutArguments) {
  const test::ScopedAppData app_data;
  test::CapturedLog log;
  const std::string folder = app_data.dir() / "engine dir";
  const std::string path = folder + "/MurmelParlPlugin";
  const std::string report = app_data.dir() / "report";
  std::filesystem::create_directories(folder);
  test::WriteFile(path, "#!/bin/sh\necho \"$0 $# $XDG_CONFIG_HOME\" > " + report + "\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0755));
  int error = -7;
  const auto reported = [&](const std::string& text) {
    return test::WaitUntil([&] { return test::ReadFile(report) == text; }, 20000);
  };
  for (const std::string& install_dir : {folder, folder + "/"}) {
    app_data.WriteOptions("install_dir=" + install_dir + "\n");
    log.Clear();
    EXPECT_TRUE(LaunchEngine(&error) && error == 0);
    EXPECT_TRUE(log.Contains("Started MurmelParlPlugin, path=" + path + "\n"));
    EXPECT_TRUE(reported(path + " 0 " + app_data.dir().path() + "\n")) << test::ReadFile(report);
    std::filesystem::remove(report);
  }
  // A launch that is young serves all, one that failed or may be dead nobody.
  test::WriteFile(path, "#!/bin/sh\necho x >> " + report + "\n");
  ForgetEngineLaunch();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(ShareEngineLaunch(&error) && error == 0);
  EXPECT_TRUE(log.Contains("MurmelParlPlugin was started less than a second ago.\n"));
  ForgetEngineLaunch();
  EXPECT_TRUE(ShareEngineLaunch(&error) && reported("x\nx\n"));
  std::this_thread::sleep_for(std::chrono::milliseconds(1050));
  EXPECT_TRUE(ShareEngineLaunch(&error) && reported("x\nx\nx\n"));
  // Without a folder the default one is tried, and its absence is not seen.
  const std::string default_path = "/opt/murmel/parlplugin/MurmelParlPlugin";
  if (Filesystem::IsFile(default_path)) GTEST_SKIP() << "an engine is installed";
  app_data.WriteOptions("install_dir=\n");
  EXPECT_TRUE(LaunchEngine(&error));
  EXPECT_TRUE(log.Contains("Failed to get MurmelParlPlugin path. Trying default.\n") &&
              log.Contains("Started MurmelParlPlugin, path=" + default_path + "\n"));
}

TEST(LauncherTest, SaysWhatTheStartItselfCannotTell) {
  const test::ScopedAppData app_data;
  const std::string folder = app_data.dir() / "engine";
  const std::string path = folder + "/MurmelParlPlugin";
  std::filesystem::create_directories(folder);
  app_data.WriteOptions("install_dir=" + folder + "\n");
  int error = 0;
  const auto launch_says = [&](const std::string& text) {
    const test::CapturedLog log;
    EXPECT_TRUE(LaunchEngine(&error));
    return log.Contains(text);
  };
  const std::string warning = "MurmelParlPlugin cannot be run, path=" + path;
  EXPECT_TRUE(launch_says(warning + " : [0x00000002] "));
  test::WriteFile(path, "#!/bin/sh\n");
  ASSERT_EQ(0, chmod(path.c_str(), 0644));
  EXPECT_TRUE(launch_says(warning + " : [0x0000000d] "));
  ASSERT_EQ(0, chmod(path.c_str(), 0755));
  EXPECT_FALSE(launch_says("cannot be run"));
  std::filesystem::remove(path);
  std::filesystem::create_directories(path);
  EXPECT_TRUE(launch_says(warning + " : [0x0000000d] "));
  // The engine's process starts in "/".
  app_data.WriteOptions("install_dir=" + std::filesystem::relative(folder).string() + "\n");
  EXPECT_TRUE(launch_says("cannot be run, path=/.."));
}

TEST(LauncherTest, ALaunchWithoutAPortFileIsToldOnceWithWhatRuns) {
  const test::ScopedAppData app_data;
  app_data.WriteOptions("install_dir=" + app_data.dir().path() + "\n");
  const test::CapturedLog log;
  std::vector<int> others;
  FindEngineProcesses(true, &others);
  int error = 0;
  ASSERT_TRUE(LaunchEngine(&error));
  WarnOfSilentLaunch(std::chrono::hours(1));
  EXPECT_FALSE(log.Contains("no port file that can be used"));
  for (int i = 0; i < 2; ++i) WarnOfSilentLaunch(std::chrono::seconds(0));
  EXPECT_EQ(1, log.Count(" s ago, and there is no port file that can be used in " +
                         app_data.folder() + (others.empty() ? ". No process" : ". It runs")));
  const NamedChild engine("MurmelParlPlugin");
  ASSERT_TRUE(LaunchEngine(&error));
  WarnOfSilentLaunch(std::chrono::seconds(0));
  EXPECT_TRUE(
      log.Contains(". It runs, pid: " + (others.empty() ? std::to_string(engine.pid()) : "")));
}

}  // namespace
}  // namespace mpbp
