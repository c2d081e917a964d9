// A file descriptor with one owner.
#ifndef MPBP_BASE_UNIQUEFD_H_
#define MPBP_BASE_UNIQUEFD_H_

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace mpbp {

// Closes its descriptor when it goes, and leaves errno as it was: what failed before is what
// counts.
class UniqueFd {
 public:
  UniqueFd() = default;
  // Takes over `fd`; a negative number is none.
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~UniqueFd() { Reset(); }

  // Negative when there is none.
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  // Hands the descriptor over to the caller.
  [[nodiscard]] int Release() { return std::exchange(fd_, -1); }
  // Closes it. For descriptors that were read from, or whose last bytes were flushed: what the
  // system has to say about the end is dropped.
  void Reset(int fd = -1) {
    const int old = std::exchange(fd_, fd);
    if (old < 0) return;
    const int error = errno;
    close(old);
    errno = error;
  }
  // Closes it and returns what the system says: 0, or -1 with errno set. It is gone in any case. 0
  // when there is none.
  int Close() { return fd_ < 0 ? 0 : close(Release()); }

 private:
  int fd_ = -1;
};

}  // namespace mpbp

#endif  // MPBP_BASE_UNIQUEFD_H_
