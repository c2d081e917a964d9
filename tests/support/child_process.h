// Child processes with a command name of the test's choice.
#ifndef MPBP_TESTS_SUPPORT_CHILD_PROCESS_H_
#define MPBP_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace mpbp::test {

// A child that sleeps until a signal ends it; killed and reaped at the end.
class NamedChild {
 public:
  // The system keeps 15 characters of `name`.
  explicit NamedChild(const char* name) {
    int ready[2];
    EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_NAME, name);
      if (write(ready[1], "x", 1) != 1) _exit(1);
      for (;;) pause();
    }
    EXPECT_GT(pid_, 0);
    char byte = 0;
    EXPECT_EQ(1, read(ready[0], &byte, 1));
    close(ready[0]);
    close(ready[1]);
  }
  NamedChild(const NamedChild&) = delete;
  NamedChild& operator=(const NamedChild&) = delete;
  ~NamedChild() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }
  // Waits for its end; the signal that ended it, 0 when none did.
  int WaitForSignal() {
    int status = 0;
    EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
    pid_ = -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  pid_t pid_ = -1;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_CHILD_PROCESS_H_
