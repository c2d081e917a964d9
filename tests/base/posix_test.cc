#include "base/posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
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

using test::ReadFile;
using test::WaitUntil;

constexpr int kDeadlineMs = 20000;

std::set<int> OpenDescriptors() {
  std::set<int> fds;
  const auto collect = [](void* context, int fd) {
    EXPECT_TRUE(static_cast<std::set<int>*>(context)->insert(fd).second);
  };
  EXPECT_EQ(0, fdwalk(collect, &fds));
  return fds;
}

// Sets what a signal does and puts the former action back.
class ScopedSignal {
 public:
  ScopedSignal(int signal, void (*handler)(int), int flags = 0) : signal_(signal) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;  // no SA_RESTART: calls are interrupted
    EXPECT_EQ(0, sigaction(signal, &action, &previous_));
  }
  ScopedSignal(const ScopedSignal&) = delete;
  ScopedSignal& operator=(const ScopedSignal&) = delete;
  ~ScopedSignal() { sigaction(signal_, &previous_, nullptr); }

 private:
  int signal_;
  struct sigaction previous_ = {};
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

  // What a script has written; empty after the deadline.
  std::string Await(const std::string& name) const {
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(dir_ / name).ends_with('\n'); }, kDeadlineMs));
    return ReadFile(dir_ / name);
  }
  // Whether a script can be started and runs.
  void ExpectStarts() {
    EXPECT_TRUE(StartScript("mkdir $DIR/started"));
    EXPECT_TRUE(WaitUntil([this] { return rmdir((dir_ / "started").c_str()) == 0; }, kDeadlineMs));
    EXPECT_FALSE(log_.Contains("rror") || log_.Contains("arning")) << log_.text();
  }

  test::TempDir dir_;
  test::CapturedLog log_;
};

TEST_F(PosixTest, ADaemonIsDetachedWithThreeDescriptorsAndStandardSignals) {
  int pipe_fds[2];
  ASSERT_EQ(0, pipe(pipe_fds));  // not close-on-exec, as other parts of the host may do it
  const std::set<int> before = OpenDescriptors();
  sigset_t mask{};
  sigaddset(&mask, SIGTERM);
  ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &mask, nullptr));
  {
    ScopedSignal ignore_hup(SIGHUP, SIG_IGN);
    ASSERT_TRUE(StartScript("echo $$ > $DIR/pid; exec sleep 60"));
    // A shell would set its own signal mask.
    std::string copy = dir_ / "status";
    char name[] = "cp";
    char own_status[] = "/proc/self/status";
    char* const argv[] = {name, own_status, copy.data(), nullptr};
    ASSERT_TRUE(RunAsDaemon("/bin/cp", argv));
  }
  sigset_t now;
  ASSERT_EQ(0, pthread_sigmask(SIG_UNBLOCK, &mask, &now));
  EXPECT_EQ(1, sigismember(&now, SIGTERM));
  EXPECT_EQ(0, sigismember(&now, SIGUSR1));
  EXPECT_EQ("", log_.text());
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));  // no child, not even a dead one
  EXPECT_EQ(ECHILD, errno);
  close(pipe_fds[0]);
  close(pipe_fds[1]);

  const pid_t pid = std::stoi("0" + Await("pid"));
  const std::string proc = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(WaitUntil([&proc] { return ReadFile(proc + "/comm") == "sleep\n"; }, kDeadlineMs));
  // A program that starts opens files for a moment; what it inherited would stay.
  const auto open_files = [&] {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(proc + "/fd")) {
      names.insert(entry.path().filename());
    }
    return names;
  };
  const std::set<std::string> standard = {"0", "1", "2"};
  EXPECT_TRUE(WaitUntil([&] { return open_files() == standard; }, kDeadlineMs));
  EXPECT_EQ("/", std::filesystem::read_symlink(proc + "/cwd").string());
  EXPECT_THAT(ReadFile(proc + "/status"),
              testing::Not(testing::HasSubstr("PPid:\t" + std::to_string(getpid()) + "\n")));
  EXPECT_THAT(Await("status"), testing::ContainsRegex("SigBlk:\t0{16}\nSigIgn:\t0{16}\n"));
  EXPECT_EQ(0, kill(pid, SIGTERM));
  // Gone, or dead where nobody reaps orphans.
  EXPECT_TRUE(WaitUntil([&proc] { return ReadFile(proc + "/cmdline").empty(); }, kDeadlineMs));
}

TEST_F(PosixTest, StartsWhateverTheHostDoesWithItsChildrenAndSignals) {
  const auto reap = [](int) {
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
    errno = error;
  };
  ScopedSignal alarm(SIGALRM, [](int) {});
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads(3);  // they hold the locks of memory and log when a fork comes
  for (std::thread& thread : threads) {
    thread = std::thread([&stop] {
      while (!stop) {
        std::vector<std::string> memory(50, std::string(1000, 'x'));
        LOG(LS_SENSITIVE) << "busy " << memory.size();
      }
    });
  }
  for (void (*const handler)(int) : {SIG_DFL, SIG_IGN, +reap}) {
    for (const int flags : {0, SA_NOCLDWAIT}) {
      ScopedSignal child(SIGCHLD, handler, flags);
      ualarm(200, 200);  // interrupts the waiting start
      // Whether the handler or the waiting start is first changes from run to run.
      for (int i = 0; i < 15; ++i) EXPECT_TRUE(StartScript(":"));
      ualarm(0, 0);
      ExpectStarts();
    }
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(PosixTest, StartsAProgramThatDoesNotExistAndWithoutStandardDescriptors) {
  char name[] = "/nonexistent/program";
  char* const argv[] = {name, nullptr};
  EXPECT_TRUE(RunAsDaemon(name, argv));
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);  // so that one of the start's own descriptors gets its number
  ExpectStarts();
  EXPECT_EQ(STDIN_FILENO, dup2(saved, STDIN_FILENO));
  close(saved);
}

}  // namespace
}  // namespace mpbp
