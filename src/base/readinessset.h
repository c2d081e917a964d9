// A descriptor that is readable for as long as one of a changing set of others is ready. Whoever
// waits for it touches none of them.
#ifndef MPBP_BASE_READINESSSET_H_
#define MPBP_BASE_READINESSSET_H_

#include <sys/select.h>

#include <array>
#include <cstdint>

#include "base/uniquefd.h"

namespace mpbp {

// On one thread; only the waiting for the descriptor may be another's.
class ReadinessSet {
 public:
  ReadinessSet();

  // Negative when the system gave none.
  int descriptor() const { return epoll_.get(); }

  // What of `fd`, a descriptor below FD_SETSIZE, makes the set ready: EventFlags, 0 for nothing
  // any more. To be told before `fd` is closed. Asks the system only when something has changed.
  void Set(int fd, uint32_t events);

 private:
  const UniqueFd epoll_;
  std::array<uint8_t, FD_SETSIZE> watched_{};  // by descriptor
};

}  // namespace mpbp

#endif  // MPBP_BASE_READINESSSET_H_
