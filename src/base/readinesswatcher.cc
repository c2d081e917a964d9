#include "base/readinesswatcher.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "base/logging.h"
#include "base/timeutils.h"

namespace mpbp {
namespace {

constexpr char kThreadName[] = "mpbp-watcher";

// Each source is off once it has fired, until it is enabled again: a descriptor that stays ready
// does not keep the thread awake.
constexpr uint32_t kOnce = EPOLLIN | EPOLLONESHOT;

epoll_event EventOf(int fd, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  return event;
}

bool Add(int epoll, int fd, uint32_t events) {
  epoll_event event = EventOf(fd, events);
  return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

ReadinessWatcher::ReadinessWatcher(std::function<void()> notify)
    : notify_(std::move(notify)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

ReadinessWatcher::~ReadinessWatcher() { Stop(-1); }

std::unique_ptr<ReadinessWatcher> ReadinessWatcher::Create(std::function<void()> notify) {
  std::unique_ptr<ReadinessWatcher> watcher(new ReadinessWatcher(std::move(notify)));
  if (watcher->Start()) return watcher;
  LOG_ERR(LS_ERROR) << "No thread to watch the sockets";
  return nullptr;
}

bool ReadinessWatcher::Start() {
  if (!epoll_ || !timer_ || !stop_) return false;
  if (!Add(epoll_.get(), stop_.get(), EPOLLIN) || !Add(epoll_.get(), timer_.get(), kOnce)) {
    return false;
  }
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  errno = pthread_create(&thread_, nullptr, &ThreadMain, this);
  joined_ = errno != 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return !joined_;
}

void* ReadinessWatcher::ThreadMain(void* self) {
  static_cast<ReadinessWatcher*>(self)->Run();
  return nullptr;
}

void ReadinessWatcher::Run() {
  pthread_setname_np(pthread_self(), kThreadName);
  epoll_event event;
  for (;;) {
    const int count = epoll_wait(epoll_.get(), &event, 1, -1);
    if (count < 0 && errno != EINTR) return;
    if (count < 1) continue;
    if (event.data.fd == stop_.get()) return;
    if (!told_.exchange(true)) notify_();
  }
}

void ReadinessWatcher::Stop(int wait_ms) {
  // A forked child has no such thread, but the descriptors: its end must not be the parent's.
  if (getpid() != process_ || joined_.exchange(true)) return;
  const uint64_t one = 1;
  // The only possible failure is a full counter, which ends the thread too.
  static_cast<void>(!write(stop_.get(), &one, sizeof(one)));
  if (wait_ms < 0) {
    pthread_join(thread_, nullptr);
    return;
  }
  timespec until{};
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += wait_ms / 1000;
  until.tv_nsec += (wait_ms % 1000) * 1000000L;
  if (until.tv_nsec >= 1000000000L) {
    until.tv_nsec -= 1000000000L;
    ++until.tv_sec;
  }
  pthread_timedjoin_np(thread_, nullptr, &until);
}

void ReadinessWatcher::Watch(int fd) {
  // One that was closed is gone from the set already.
  if (watched_ >= 0) epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, watched_, nullptr);
  watched_ = fd;
  if (fd >= 0 && !Add(epoll_.get(), fd, kOnce)) LOG_ERR(LS_ERROR) << "epoll_ctl";
}

void ReadinessWatcher::Enable(int fd) const {
  epoll_event event = EventOf(fd, kOnce);
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void ReadinessWatcher::ProgramTimer(const uint32_t* trigger_ms) {
  itimerspec when{};
  if (trigger_ms) {
    // All zero would turn the timer off.
    const int32_t delay = std::max(0, TimeDiff(*trigger_ms, Time()));
    when.it_value.tv_sec = delay / 1000;
    when.it_value.tv_nsec = std::max(1L, (delay % 1000) * 1000000L);
  }
  timerfd_settime(timer_.get(), 0, &when, nullptr);
}

void ReadinessWatcher::SetTimer(uint32_t trigger_ms) {
  if (timer_set_ && trigger_ms == trigger_ms_) return;
  timer_set_ = true;
  trigger_ms_ = trigger_ms;
  ProgramTimer(&trigger_ms);
}

void ReadinessWatcher::ClearTimer() {
  if (!timer_set_) return;
  timer_set_ = false;
  ProgramTimer(nullptr);
}

void ReadinessWatcher::Rearm() {
  // An expired timer would stay readable.
  ProgramTimer(timer_set_ ? &trigger_ms_ : nullptr);
  told_ = false;
  Enable(timer_.get());
  if (watched_ >= 0) Enable(watched_);
}

}  // namespace mpbp
