#include "engine/process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "base/filestream.h"
#include "base/logging.h"

namespace mpbp::engine {
namespace {

// Streams, lock, log and port file, pipes, the listener, and one to accept and drop what is too
// much; and a few that whoever started the process left open.
constexpr rlim_t kOwnDescriptors = 24;

}  // namespace

void FillStandardStreams() {
  int fd = -1;
  do fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd > STDERR_FILENO) close(fd);
}

void LeaveSession() {
  static_cast<void>(setsid());  // the only failure is the one of a group leader
}

void LetGoOfStandardStreams() {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  bool done = null >= 0;
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    done = done && dup2(null, stream) == stream;
  }
  if (!done) LOG_ERR(LS_ERROR) << "The standard streams stay open.";
  if (null > STDERR_FILENO) close(null);
}

void OpenLogFile(const std::string& path) {
  auto file = std::make_shared<FileStream>();
  int error = 0;
  if (!file->Open(path, "w", &error) || !file->DisableBuffering()) {
    LOG_ERR_EX(LS_ERROR, error) << "Unable to write to log file " << path;
    return;
  }
  LogMessage::LogTimestamps(true);
  LogMessage::LogToStream(std::move(file), LS_INFO);
}

size_t MakeRoomForClients() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, FD_SETSIZE);
  if (limit.rlim_cur < wanted) {
    const rlimit raised{wanted, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  const rlim_t usable = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
  return usable > kOwnDescriptors ? usable - kOwnDescriptors : 1;
}

}  // namespace mpbp::engine
