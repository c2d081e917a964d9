#include "base/posix.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptors.h"
#include "base/logging.h"

// What runs in a child, from here to RunAsDaemon, allocates nothing and takes no lock: the host has
// many threads, and whichever of them held a lock when the process forked holds it forever in the
// child. It calls the kernel itself, not through the C library, whose functions a host may replace
// for the whole process: one browser's close() ends the process for a descriptor that an object of
// the browser owns, and the child closes them all.

namespace mpbp {
namespace {

// The intermediate child's exit code. The parent reads the same byte from the status pipe when
// the host took the exit code away.
enum ChildStatus : int {
  kChdirFailed = 1,
  kWalkFailed = 2,
  kCloseFailed = 4,
  kForkFailed = 8,
};

constexpr int kFirstClosed = 3;
constexpr int kSignalDeathMask = 0x7f;  // of a wait status: the signal that ended the process

// What getdents64 writes (Linux, getdents(2)). The name ends with a NUL.
struct DirectoryEntry {
  uint64_t inode;
  int64_t offset;
  uint16_t length;  // of this entry with its padding
  uint8_t type;
  char name[1];
};

// The descriptor that the name spells in decimal, -1 for any other name.
int ParseDescriptor(const char* name) {
  if (*name == '\0') return -1;
  int fd = 0;
  for (; *name != '\0'; ++name) {
    if (*name < '0' || *name > '9' || fd > (INT_MAX - 9) / 10) return -1;
    fd = fd * 10 + (*name - '0');
  }
  return fd;
}

bool IsDotEntry(const char* name) { return strcmp(name, ".") == 0 || strcmp(name, "..") == 0; }

struct CloseContext {
  int kept_fd;
  bool failed;
};

void CloseInherited(void* context, int fd) {
  auto* state = static_cast<CloseContext*>(context);
  if (fd < kFirstClosed || fd == state->kept_fd) return;
  if (syscall(SYS_close, fd) != 0) state->failed = true;
}

[[noreturn]] void Exit(int status) {
  for (;;) syscall(SYS_exit_group, status);
}

// The kernel's struct sigaction (Linux, rt_sigaction(2)), all zero: the standard action.
struct KernelSigaction {
  void* handler;
  unsigned long flags;
  void* restorer;
  uint64_t mask;
};

// The engine must be killable with SIGTERM whatever the browser's thread blocks or ignores.
// Handlers go first, so that none of the host's runs here.
void ResetSignals() {
  const KernelSigaction standard{};
  // Fails for SIGKILL and SIGSTOP, which need no reset.
  for (int signal = 1; signal < NSIG; ++signal) {
    syscall(SYS_rt_sigaction, signal, &standard, nullptr, sizeof(standard.mask));
  }
  const uint64_t none = 0;
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof(none));  // cannot fail
}

// What execvp would do, in two halves: the search is prepared before the fork, since it allocates.
class Program {
 public:
  Program(const char* file, char* const argv[]) : argv_(argv) {
    const std::string_view name(file);
    if (name.find('/') == std::string_view::npos) {
      AddPaths(name);
    } else {
      paths_.emplace_back(name);
    }
    for (char* const* word = *argv ? argv + 1 : argv; *word; ++word) shell_words_.push_back(*word);
    shell_words_.push_back(nullptr);
  }

  // Replaces this process, or returns. In a child.
  void Execute() {
    for (std::string& path : paths_) {
      syscall(SYS_execve, path.c_str(), argv_, environ);
      if (errno != ENOEXEC) continue;
      // A script without "#!" is the shell's.
      shell_words_[1] = path.data();
      syscall(SYS_execve, shell_words_[0], shell_words_.data(), environ);
    }
  }

 private:
  void AddPaths(std::string_view name) {
    if (name.empty()) return;
    const char* const variable = getenv("PATH");
    std::string_view folders = variable ? variable : "/bin:/usr/bin";
    for (;;) {
      const size_t end = folders.find(':');
      std::string path(folders.substr(0, end));
      if (!path.empty()) path += '/';  // an empty entry is the current folder
      paths_.push_back(path.append(name));
      if (end == std::string_view::npos) return;
      folders.remove_prefix(end + 1);
    }
  }

  char* const* const argv_;
  std::vector<std::string> paths_;
  char shell_[8] = "/bin/sh";
  std::vector<char*> shell_words_{shell_, nullptr};
};

[[noreturn]] void RunIntermediateChild(Program& program, int status_fd) {
  int status = 0;
  if (syscall(SYS_chdir, "/") != 0) status |= kChdirFailed;
  CloseContext context{status_fd, false};
  if (fdwalk(CloseInherited, &context) != 0) status |= kWalkFailed;
  if (context.failed) status |= kCloseFailed;
  const long grandchild = syscall(SYS_fork);
  if (grandchild == 0) {
    ResetSignals();
    program.Execute();
    Exit(255);
  }
  if (grandchild < 0) status |= kForkFailed;
  const char byte = static_cast<char>(status);
  // Where it fails, the exit code still says it.
  syscall(SYS_write, status_fd, &byte, 1);
  Exit(status);
}

// The child's exit code; nothing after a log line, with *error as RunAsDaemon gives it.
std::optional<int> WaitForChild(pid_t child, int status_fd, int* error) {
  *error = 0;
  int status = 0;
  pid_t waited = 0;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited < 0) {
    const int wait_error = errno;
    // ECHILD: the host ignores SIGCHLD or has reaped the child itself. It has ended then, so its
    // byte is there.
    unsigned char byte = 0;
    if (wait_error == ECHILD && read(status_fd, &byte, 1) == 1) return byte;
    LOG_ERR_EX(LS_ERROR, wait_error) << "Error in waitpid()";
    *error = wait_error;
    return std::nullopt;
  }
  if (waited == child && (status & kSignalDeathMask) == 0) return WEXITSTATUS(status);
  if (waited != child) {
    LOG(LS_ERROR) << "waitpid() chose wrong child???";
  } else {
    LOG(LS_ERROR) << "Intermediate child killed uncleanly";
  }
  return std::nullopt;
}

// Whether the program was detached.
bool ReportChildStatus(int status) {
  if (status & kChdirFailed) LOG(LS_WARNING) << "Child reported probles calling chdir()";
  if (status & kWalkFailed) LOG(LS_WARNING) << "Child reported problems calling fdwalk()";
  if (status & kCloseFailed) LOG(LS_WARNING) << "Child reported problems calling close()";
  if (status & kForkFailed) LOG(LS_ERROR) << "Failed to daemonize";
  return (status & kForkFailed) == 0;
}

}  // namespace

bool RunAsDaemon(const char* file, char* const argv[], int* error) {
  Program program(file, argv);
  // On it the child's status comes even if the host reaps the child. The start goes on without it.
  const Pipe pipe = MakePipe(O_NONBLOCK, nullptr);
  // No handler of the host may run in the children; the grandchild unblocks everything again.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);  // cannot fail with these arguments
  const pid_t child = fork();
  if (child == 0) {
    // Frees a descriptor for the walk, should the host be at its limit.
    if (pipe.read_end) syscall(SYS_close, pipe.read_end.get());
    RunIntermediateChild(program, pipe.write_end.get());
  }
  int failure = errno;
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  std::optional<int> status;
  if (child < 0) {
    LOG_ERR_EX(LS_ERROR, failure) << "fork()";
  } else {
    status = WaitForChild(child, pipe.read_end.get(), &failure);
  }
  if (status && ReportChildStatus(*status)) return true;
  if (error) *error = failure;
  return false;
}

int fdwalk(void (*callback)(void* context, int fd), void* context) {
  const auto dir = static_cast<int>(
      syscall(SYS_openat, AT_FDCWD, "/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir < 0) return -1;
  alignas(DirectoryEntry) char buffer[4096];
  bool malformed = false;
  long size = 0;
  // Not readdir: it may allocate. Closing while the list is read is safe, it goes by number.
  while ((size = syscall(SYS_getdents64, dir, buffer, sizeof(buffer))) > 0) {
    for (long offset = 0; offset < size;) {
      const char* entry = buffer + offset;
      uint16_t length = 0;
      memcpy(&length, entry + offsetof(DirectoryEntry, length), sizeof(length));
      offset += length;
      const char* name = entry + offsetof(DirectoryEntry, name);
      if (IsDotEntry(name)) continue;
      const int fd = ParseDescriptor(name);
      if (fd < 0) malformed = true;
      if (fd >= 0 && fd != dir) callback(context, fd);
    }
  }
  const int error = size < 0 ? errno : 0;
  if (syscall(SYS_close, dir) != 0 && error == 0) return -1;
  if (error != 0 || malformed) {
    errno = error != 0 ? error : EBADF;
    return -1;
  }
  return 0;
}

}  // namespace mpbp
