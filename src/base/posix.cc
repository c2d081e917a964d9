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
#include <cstring>

#include "base/logging.h"

// Everything from here to RunAsDaemon that runs in a child is async-signal-safe: the host has many
// threads, and whichever of them held a lock when the process forked holds it for ever in the
// child.

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
  if (fd >= kFirstClosed && fd != state->kept_fd && close(fd) != 0) state->failed = true;
}

// The engine must be killable with SIGTERM whatever the browser's thread blocks or ignores.
// Handlers go first, so that none of the host's runs here.
void ResetSignals() {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  // Fails for SIGKILL, SIGSTOP and the C library's own signals, which need no reset.
  for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);  // cannot fail with these arguments
}

[[noreturn]] void RunIntermediateChild(const char* file, char* const argv[], int status_fd) {
  int status = 0;
  if (chdir("/") != 0) status |= kChdirFailed;
  CloseContext context{status_fd, false};
  if (fdwalk(CloseInherited, &context) != 0) status |= kWalkFailed;
  if (context.failed) status |= kCloseFailed;
  const pid_t grandchild = _Fork();  // fork() runs handlers of the host
  if (grandchild == 0) {
    ResetSignals();
    execvp(file, argv);
    _exit(255);
  }
  if (grandchild < 0) status |= kForkFailed;
  const char byte = static_cast<char>(status);
  // Where it fails, the exit code still says it.
  static_cast<void>(!write(status_fd, &byte, 1));
  _exit(status);
}

// A pipe on which the child's status comes even if the host reaps the child. Both ends are -1 when
// it cannot be made; the start goes on without it.
struct StatusPipe {
  StatusPipe() {
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) fds[0] = fds[1] = -1;
  }
  StatusPipe(const StatusPipe&) = delete;
  StatusPipe& operator=(const StatusPipe&) = delete;
  ~StatusPipe() {
    // Nothing is lost with an end that does not close.
    for (const int fd : fds) {
      if (fd >= 0) close(fd);
    }
  }

  int fds[2];
};

// The child's exit code, or -1 after a log line, with errno as RunAsDaemon gives it.
int WaitForChild(pid_t child, int status_fd) {
  int status = 0;
  pid_t waited = 0;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  const int error = errno;
  if (waited < 0) {
    // ECHILD: the host ignores SIGCHLD or has reaped the child itself. It has ended then, so its
    // byte is there.
    unsigned char byte = 0;
    if (error == ECHILD && read(status_fd, &byte, 1) == 1) return byte;
    LOG_ERR_EX(LS_ERROR, error) << "Error in waitpid()";
    errno = error;
    return -1;
  }
  if (waited == child && (status & kSignalDeathMask) == 0) return WEXITSTATUS(status);
  if (waited != child) {
    LOG(LS_ERROR) << "waitpid() chose wrong child???";
  } else {
    LOG(LS_ERROR) << "Intermediate child killed uncleanly";
  }
  errno = 0;
  return -1;
}

bool ReportChildStatus(int status) {
  if (status & kChdirFailed) LOG(LS_WARNING) << "Child reported probles calling chdir()";
  if (status & kWalkFailed) LOG(LS_WARNING) << "Child reported problems calling fdwalk()";
  if (status & kCloseFailed) LOG(LS_WARNING) << "Child reported problems calling close()";
  if (status & kForkFailed) LOG(LS_ERROR) << "Failed to daemonize";
  errno = 0;
  return (status & kForkFailed) == 0;
}

}  // namespace

bool RunAsDaemon(const char* file, char* const argv[]) {
  StatusPipe pipe;
  // No handler of the host may run in the children; the grandchild unblocks everything again.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);  // cannot fail with these arguments
  const pid_t child = fork();
  if (child == 0) {
    // Frees a descriptor for the walk, should the host be at its limit.
    if (pipe.fds[0] >= 0) close(pipe.fds[0]);
    RunIntermediateChild(file, argv, pipe.fds[1]);
  }
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (child < 0) {
    LOG_ERR_EX(LS_ERROR, error) << "fork()";
    errno = error;
    return false;
  }
  const int status = WaitForChild(child, pipe.fds[0]);
  return status >= 0 && ReportChildStatus(status);
}

int fdwalk(void (*callback)(void* context, int fd), void* context) {
  const int dir = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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
  if (close(dir) != 0 && error == 0) return -1;
  if (error != 0 || malformed) {
    errno = error != 0 ? error : EBADF;
    return -1;
  }
  return 0;
}

}  // namespace mpbp
