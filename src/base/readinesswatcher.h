// A thread that tells when a descriptor is readable or a time has come.
#ifndef MPBP_BASE_READINESSWATCHER_H_
#define MPBP_BASE_READINESSWATCHER_H_

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "base/uniquefd.h"

namespace mpbp {

// It tells once, and is silent and asleep until Rearm. What it shares with its owner is descriptors
// of the system and one flag: it has no lock, and whatever moment the process forks at leaves
// nothing in a state of its own. Its thread takes no signals.
//
// Every operation on one thread, but for Stop.
class ReadinessWatcher {
 public:
  // `notify` is called on the watcher's thread and must not wait for the owner's. Null, with an
  // error line, when the system refuses a thread or a descriptor.
  [[nodiscard]] static std::unique_ptr<ReadinessWatcher> Create(std::function<void()> notify);
  ReadinessWatcher(const ReadinessWatcher&) = delete;
  ReadinessWatcher& operator=(const ReadinessWatcher&) = delete;
  // Ends the thread and joins it; what is in `notify` comes to its end first.
  ~ReadinessWatcher();

  // What to look at: `fd` is borrowed until the next call, or until it is closed; negative:
  // nothing.
  void Watch(int fd);
  // When to tell even if nothing is ready: at `trigger_ms` as Time() counts, or never. Asks the
  // system only when that has changed.
  void SetTimer(uint32_t trigger_ms);
  void ClearTimer();
  // Whether it has told since the last Rearm.
  bool has_told() const { return told_; }
  // From here on it tells again, at once when there is something to tell.
  void Rearm();

  // The thread ends and is waited for, for at most `wait_ms`; negative: without limit. From any
  // thread, at the end of the process: the watcher is of no more use. Nothing in a forked child.
  void Stop(int wait_ms);

 private:
  explicit ReadinessWatcher(std::function<void()> notify);

  [[nodiscard]] bool Start();
  static void* ThreadMain(void* self);
  void Run();
  void Enable(int fd) const;
  void ProgramTimer(const uint32_t* trigger_ms);

  const std::function<void()> notify_;
  const UniqueFd epoll_;
  const UniqueFd timer_;
  const UniqueFd stop_;
  const pid_t process_ = getpid();
  int watched_ = -1;
  bool timer_set_ = false;
  uint32_t trigger_ms_ = 0;
  std::atomic<bool> told_{false};
  std::atomic<bool> joined_{true};
  pthread_t thread_{};
};

}  // namespace mpbp

#endif  // MPBP_BASE_READINESSWATCHER_H_
