#include "engine/enginelock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "base/timeutils.h"

namespace mpbp::engine {
namespace {

constexpr std::chrono::milliseconds kRetryTime(50);

}  // namespace

EngineLock::Outcome EngineLock::Take(const std::string& path, int wait_ms) {
  // Non-blocking: in the place of the file there may be a FIFO.
  fd_ = UniqueFd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!fd_) return Outcome::kFailed;
  const uint32_t start = Time();
  // Asking again and again needs no timer signal to end it.
  while (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return Outcome::kFailed;
    if (TimeDiff(Time(), start) >= wait_ms) return Outcome::kHeldByOther;
    std::this_thread::sleep_for(kRetryTime);
  }
  return Outcome::kTaken;
}

}  // namespace mpbp::engine
