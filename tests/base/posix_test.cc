#include "base/posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <set>
#include <thread>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::ReadFile;
using test::TempDir;
using test::WaitUntil;

constexpr int kDeadlineMs = 20000;

void CollectDescriptor(void* context, int fd) { static_cast<std::set<int>*>(context)->insert(fd); }

std::set<int> OpenDescriptors() {
  std::set<int> fds;
  EXPECT_EQ(0, fdwalk(CollectDescriptor, &fds));
  return fds;
}

const std::set<std::string> kStandardFds = {"0", "1", "2"};

std::set<std::string> EntryNames(const std::string& folder) {
  std::set<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

// Sets what a signal does and puts the former action back.
class ScopedSignal {
 public:
  ScopedSignal(int signal, void (*handler)(int), int flags = 0) : signal_(signal) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;  // no SA_RESTART: calls are interrupted
    EXPECT_EQ(0, sigaction(signal, &action, &previous_));
  }
  ScopedSignal(const ScopedSignal&) = delete;
  ScopedSignal& operator=(const ScopedSignal&) = delete;
  ~ScopedSignal() { sigaction(signal_, &previous_, nullptr); }

 private:
  int signal_;
  struct sigaction previous_ {};
};

class PosixTest : public testing::Test {
 protected:
  // Starts a shell script that may use $DIR, a folder of this test.
  bool StartScript(const std::string& script) {
    std::string text = "DIR=" + dir_.path() + "; " + script;
    char shell[] = "sh";
    char option[] = "-c";
    char* const argv[] = {shell, option, text.data(), nullptr};
    return RunAsDaemon("/bin/sh", argv);
  }

  // Whether a script can be started and runs.
  void ExpectStarts() {
    EXPECT_TRUE(StartScript("mkdir $DIR/started"));
    EXPECT_TRUE(WaitUntil([this] { return rmdir((dir_ / "started").c_str()) == 0; }, kDeadlineMs));
    EXPECT_EQ("", log_.text());
  }

  TempDir dir_;
  CapturedLog log_;
};

TEST_F(PosixTest, ADaemonIsDetachedWithThreeDescriptorsAndStandardSignals) {
  int pipe_fds[2];
  ASSERT_EQ(0, pipe(pipe_fds));  // not close-on-exec, as other parts of the host may do it
  const std::set<int> before = OpenDescriptors();
  sigset_t term;
  sigset_t previous;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &term, &previous));
  {
    ScopedSignal ignore_hup(SIGHUP, SIG_IGN);
    ASSERT_TRUE(StartScript("echo $$ > $DIR/part; mv $DIR/part $DIR/pid; exec sleep 60"));
  }
  sigset_t now;
  ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, &previous, &now));
  EXPECT_EQ(1, sigismember(&now, SIGTERM));
  EXPECT_EQ(0, sigismember(&now, SIGUSR1));
  EXPECT_EQ("", log_.text());
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));  // no child, not even a dead one
  EXPECT_EQ(ECHILD, errno);
  close(pipe_fds[0]);
  close(pipe_fds[1]);

  ASSERT_TRUE(WaitUntil([this] { return !ReadFile(dir_ / "pid").empty(); }, kDeadlineMs));
  const pid_t pid = std::stoi(ReadFile(dir_ / "pid"));
  const std::string proc = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(WaitUntil([&proc] { return ReadFile(proc + "/comm") == "sleep\n"; }, kDeadlineMs));
  // A program that starts opens files for a moment; what it inherited would stay.
  EXPECT_TRUE(WaitUntil([&proc] { return EntryNames(proc + "/fd") == kStandardFds; }, kDeadlineMs));
  EXPECT_EQ("/", std::filesystem::read_symlink(proc + "/cwd").string());
  const std::string status = ReadFile(proc + "/status");
  EXPECT_THAT(status, testing::HasSubstr("SigBlk:\t0000000000000000\n"));
  EXPECT_THAT(status, testing::HasSubstr("SigIgn:\t0000000000000000\n"));
  EXPECT_THAT(status,
              testing::Not(testing::HasSubstr("PPid:\t" + std::to_string(getpid()) + "\n")));
  EXPECT_EQ(0, kill(pid, SIGTERM));
  // Gone, or dead where nobody reaps orphans.
  EXPECT_TRUE(WaitUntil([&proc] { return ReadFile(proc + "/cmdline").empty(); }, kDeadlineMs));
}

TEST_F(PosixTest, TheHostMayIgnoreItsChildren) {
  ScopedSignal ignore(SIGCHLD, SIG_IGN);
  ExpectStarts();
}

TEST_F(PosixTest, TheHostMayReapEveryChild) {
  ScopedSignal reap(SIGCHLD, [](int) {
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = error;
  });
  // Whether the handler or the waiting start is first changes from run to run.
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(StartScript(":"));
  ExpectStarts();
}

TEST_F(PosixTest, InterruptedWaitsAreTakenUpAgain) {
  ScopedSignal alarm(SIGALRM, [](int) {});
  const itimerval storm{{0, 200}, {0, 200}};
  ASSERT_EQ(0, setitimer(ITIMER_REAL, &storm, nullptr));
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(StartScript(":"));
  const itimerval calm{};
  ASSERT_EQ(0, setitimer(ITIMER_REAL, &calm, nullptr));
  ExpectStarts();
}

TEST_F(PosixTest, BusyThreadsOfTheHostDoNotLockTheChildren) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&stop] {
      while (!stop) {
        std::vector<std::string> memory(50, std::string(1000, 'x'));
        LOG(LS_SENSITIVE) << "busy " << memory.size();
      }
    });
  }
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(StartScript(":"));
  stop = true;
  for (std::thread& thread : threads) thread.join();
  log_.Clear();
  ExpectStarts();
}

TEST_F(PosixTest, AProgramThatDoesNotExistCountsAsStarted) {
  char name[] = "/nonexistent/program";
  char* const argv[] = {name, nullptr};
  EXPECT_TRUE(RunAsDaemon(name, argv));
  EXPECT_EQ("", log_.text());
}

TEST_F(PosixTest, AFullDescriptorTableIsAWarningOrNoProblemAtAll) {
  ExpectStarts();
  LOG(LS_WARNING) << "once before";  // sanitizers take descriptors to check an object's type once
  rlimit previous{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &previous));
  rlimit low = previous;
  low.rlim_cur = 64;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &low));
  std::vector<int> fds;
  for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) fds.push_back(fd);
  EXPECT_TRUE(StartScript(":"));
  EXPECT_TRUE(log_.Contains("Child reported problems calling fdwalk()"));
  log_.Clear();
  // Two are enough: the pipe's, of which the child gives one back.
  ASSERT_GE(fds.size(), 2u);
  for (int i = 0; i < 2; ++i) {
    close(fds.back());
    fds.pop_back();
  }
  ExpectStarts();
  for (const int fd : fds) close(fd);
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &previous));
}

TEST_F(PosixTest, FdwalkGivesEveryDescriptorOnceMayCloseThemAndLeavesNone) {
  const std::set<int> before = OpenDescriptors();
  std::set<int> opened;
  for (int i = 0; i < 300; ++i) opened.insert(open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(300u, opened.size());
  const auto close_opened = [](void* context, int fd) {
    if (static_cast<std::set<int>*>(context)->erase(fd) == 1) close(fd);
  };
  EXPECT_EQ(0, fdwalk(close_opened, &opened));
  EXPECT_TRUE(opened.empty());
  EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace mpbp
