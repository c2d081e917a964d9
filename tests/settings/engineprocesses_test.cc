#include "engineprocesses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::NamedChild;
using testing::Contains;
using testing::Not;

class EngineProcessesTest : public testing::Test {
 protected:
  void SetUp() override { test::UseUpLowPids(); }

  static std::vector<int> Found(bool skip_self = true) {
    std::vector<int> pids;
    FindEngineProcesses(skip_self, &pids);
    return pids;
  }

  CapturedLog log_;
};

TEST_F(EngineProcessesTest, ProcessesAreFoundByTheFifteenCharactersOfTheirName) {
  NamedChild engine("MurmelParlPlugin");
  NamedChild longer("MurmelParlPlugiXYZ");
  NamedChild shorter("MurmelParlPlug");
  NamedChild other("MurmelParlServer");
  NamedChild blank("Murmel ParlPlug");
  NamedChild brackets(") (Murmel");
  NamedChild line_feed("\n\n\n");
  const std::vector<int> pids = Found();
  EXPECT_THAT(pids, Contains(engine.pid()));
  EXPECT_THAT(pids, Contains(longer.pid()));
  for (const NamedChild* child : {&shorter, &other, &blank, &brackets, &line_feed}) {
    EXPECT_THAT(pids, Not(Contains(child->pid())));
  }
  EXPECT_FALSE(log_.Contains("Unexpected content in /proc/"));
  log_.Clear();
  LogEngineProcesses();
  EXPECT_TRUE(log_.text().starts_with("Quern processes.\n"));
  EXPECT_TRUE(log_.Contains("pid: " + std::to_string(engine.pid()) + "\n"));
}

TEST_F(EngineProcessesTest, TheOwnProcessIsNeverSignalled) {
  NamedChild child("MurmelParlPlugin");
  char name[16] = {};
  ASSERT_EQ(0, prctl(PR_GET_NAME, name));
  ASSERT_EQ(0, prctl(PR_SET_NAME, "MurmelParlPlugin"));
  if (getpid() > 999) {
    EXPECT_THAT(Found(false), Contains(getpid()));
  }
  EXPECT_THAT(Found(true), Not(Contains(getpid())));
  EXPECT_GE(KillEngineProcesses(false, true), 1);  // the flag does not matter
  ASSERT_EQ(0, prctl(PR_SET_NAME, name));
}

TEST_F(EngineProcessesTest, KillingAsksPolitelyOrAtOnce) {
  NamedChild first("MurmelParlPlugin");
  NamedChild second("MurmelParlPlugin");
  NamedChild other("other");
  EXPECT_GE(KillEngineProcesses(true, false), 2);
  EXPECT_TRUE(log_.Contains("Killing all running quern processes. skip_self? 1, immediate? 0\n"));
  EXPECT_TRUE(log_.Contains("Sending SIGTERM to pid " + std::to_string(first.pid()) + "\n"));
  EXPECT_FALSE(log_.Contains("is still running."));
  EXPECT_EQ(SIGTERM, first.WaitForSignal());
  EXPECT_EQ(SIGTERM, second.WaitForSignal());

  NamedChild third("MurmelParlPlugin");
  EXPECT_GE(KillEngineProcesses(true, true), 1);
  // Nobody has reaped it, so the second look still sees it.
  EXPECT_TRUE(log_.Contains("pid " + std::to_string(third.pid()) + " is still running.\n"));
  EXPECT_EQ(SIGKILL, third.WaitForSignal());
  EXPECT_EQ(0, kill(other.pid(), 0));
}

TEST_F(EngineProcessesTest, ASignalThatCannotBeSentIsReported) {
  NamedChild gone("gone");
  const int pid = gone.pid();
  ASSERT_TRUE(SignalProcess(pid, true));
  EXPECT_TRUE(log_.Contains("Signal sent successfully.\n"));
  gone.WaitForSignal();
  EXPECT_FALSE(SignalProcess(pid, false));
  EXPECT_TRUE(log_.Contains("Error sending signal.\n"));
  EXPECT_FALSE(SignalProcess(0, false));  // would be this process's whole group
  EXPECT_FALSE(SignalProcess(-1, false));
}

}  // namespace
}  // namespace mpbp
