#include "engine/process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "base/filestream.h"
#include "base/logging.h"
#include "base/uniquefd.h"

namespace mpbp::engine {
namespace {

// Streams, lock, log and port file, pipes, the listener, and one to accept and drop what is too
// much; and a few that whoever started the process left open.
constexpr rlim_t kOwnDescriptors = 24;

}  // namespace

void FillStandardStreams() {
  UniqueFd fd(open("/dev/null", O_RDWR));
  while (fd && fd.get() <= STDERR_FILENO) {
    static_cast<void>(fd.Release());  // stays open, as the stream
    fd = UniqueFd(open("/dev/null", O_RDWR));
  }
}

void LeaveSession() {
  static_cast<void>(setsid());  // the only failure is the one of a group leader
}

void LetGoOfStandardStreams() {
  UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  bool done = static_cast<bool>(null);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    done = done && dup2(null.get(), stream) == stream;
  }
  if (!done) LOG_ERR(LS_ERROR) << "The standard streams stay open.";
  if (null.get() <= STDERR_FILENO) static_cast<void>(null.Release());  // it is one of them
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
