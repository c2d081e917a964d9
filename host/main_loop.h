// The browser's main thread: delayed tasks, watched descriptors, and one place that waits for both.
#ifndef MPBP_HOST_MAIN_LOOP_H_
#define MPBP_HOST_MAIN_LOOP_H_

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <thread>
#include <utility>

namespace mpbp::host {

// Belongs to the thread that made it. Only Post and IsMainThread may be called from other threads.
// Tasks and watchers may post, watch, unwatch and run the loop again from inside themselves.
class MainLoop {
 public:
  using Task = std::function<void()>;

  MainLoop();
  ~MainLoop();
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  bool IsMainThread() const { return std::this_thread::get_id() == thread_; }

  // Runs `task` on the main thread, never inside this call, no sooner than `delay_ms` from now
  // (below 0 counts as 0). Order: by due time, then by posting.
  void Post(int64_t delay_ms, Task task);

  // Calls `ready` in every round in which `fd` has one of `events` (POLLIN, POLLOUT) or an error.
  // The descriptor stays the caller's. The result is what Unwatch takes.
  int Watch(int fd, short events, Task ready);
  void Unwatch(int id);

  // One round: waits up to `max_wait_ms` (-1: no limit) for something to do and does it. A task
  // that is posted during the round has to wait for the next. True when anything ran.
  bool RunOnce(int max_wait_ms);
  void RunFor(int ms);
  // False when `timeout_ms` (-1: never) passed before `done` said yes.
  bool RunUntil(const std::function<bool()>& done, int timeout_ms);

  // Runs every task there is, due or not, those posted meanwhile included. False when tasks still
  // came up after `max_tasks`.
  bool Drain(int max_tasks);
  void DropTasks();
  // How many tasks wait. Any thread.
  size_t pending() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Key = std::pair<Clock::time_point, uint64_t>;
  struct Watcher {
    int fd;
    short events;
    Task ready;
  };

  int WaitTime(int max_wait_ms) const;
  bool RunReadyWatchers(std::span<const pollfd> fds, std::span<const int> ids);
  bool RunDueTasks();
  Task TakeFirst(Clock::time_point due_by, uint64_t before);

  const std::thread::id thread_ = std::this_thread::get_id();
  const int wake_fd_;
  int next_watch_ = 1;
  std::map<int, Watcher> watchers_;
  mutable std::mutex mutex_;
  std::map<Key, Task> tasks_;
  uint64_t next_task_ = 0;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_MAIN_LOOP_H_
