#include "base/readinessset.h"

#include <sys/epoll.h>

#include "base/iodispatcher.h"
#include "base/logging.h"

namespace mpbp {
namespace {

enum Interest : uint8_t { NOTHING = 0, TO_READ = 1, TO_WRITE = 2 };

uint8_t InterestIn(uint32_t events) {
  uint8_t interest = NOTHING;
  if (events & (EVENT_READ | EVENT_ACCEPT)) interest |= TO_READ;
  if (events & (EVENT_WRITE | EVENT_CONNECT)) interest |= TO_WRITE;
  return interest;
}

int Operation(uint8_t before, uint8_t after) {
  if (before == NOTHING) return EPOLL_CTL_ADD;
  return after == NOTHING ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
}

}  // namespace

ReadinessSet::ReadinessSet() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) LOG_ERR(LS_ERROR) << "epoll_create1";
}

void ReadinessSet::Set(int fd, uint32_t events) {
  uint8_t& watched = watched_.at(static_cast<size_t>(fd));
  const uint8_t interest = InterestIn(events);
  if (interest == watched || !epoll_) return;
  epoll_event event{};
  if (interest & TO_READ) event.events |= EPOLLIN;
  if (interest & TO_WRITE) event.events |= EPOLLOUT;
  if (epoll_ctl(epoll_.get(), Operation(watched, interest), fd, &event) == 0) {
    watched = interest;
  } else {
    LOG_ERR(LS_WARNING) << "epoll_ctl";
  }
}

}  // namespace mpbp
