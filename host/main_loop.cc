#include "host/main_loop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

namespace mpbp::host {
namespace {

// RunUntil looks at its condition at least this often: other threads may make it come true.
constexpr int kConditionCheckMs = 20;

}  // namespace

MainLoop::MainLoop() : wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_fd_ < 0) perror("mpbp host: eventfd");
}

MainLoop::~MainLoop() {
  DropTasks();
  if (wake_fd_ >= 0) close(wake_fd_);
}

void MainLoop::Post(int64_t delay_ms, Task task) {
  const auto due = Clock::now() + std::chrono::milliseconds(std::max<int64_t>(delay_ms, 0));
  {
    std::lock_guard lock(mutex_);
    tasks_.emplace(Key{due, next_task_++}, std::move(task));
  }
  if (IsMainThread()) return;
  const uint64_t one = 1;
  // The only possible failure is a full counter, and then the loop is awake already.
  [[maybe_unused]] const ssize_t written = write(wake_fd_, &one, sizeof one);
}

int MainLoop::Watch(int fd, short events, Task ready) {
  watchers_.emplace(next_watch_, Watcher{fd, events, std::move(ready)});
  return next_watch_++;
}

void MainLoop::Unwatch(int id) { watchers_.erase(id); }

int MainLoop::WaitTime(int max_wait_ms) const {
  std::lock_guard lock(mutex_);
  if (tasks_.empty()) return max_wait_ms;
  const auto wait =
      std::chrono::ceil<std::chrono::milliseconds>(tasks_.begin()->first.first - Clock::now());
  const int64_t limit = max_wait_ms < 0 ? std::numeric_limits<int>::max() : max_wait_ms;
  return static_cast<int>(std::clamp<int64_t>(wait.count(), 0, limit));
}

bool MainLoop::RunOnce(int max_wait_ms) {
  std::vector<pollfd> fds{{wake_fd_, POLLIN, 0}};
  std::vector<int> ids{0};
  for (const auto& [id, watcher] : watchers_) {
    fds.push_back({watcher.fd, watcher.events, 0});
    ids.push_back(id);
  }
  const int ready = poll(fds.data(), fds.size(), WaitTime(max_wait_ms));
  bool ran = false;
  if (ready > 0) {  // a signal or a failed poll leaves nothing to look at
    if (fds[0].revents != 0) {
      uint64_t count = 0;
      // Nothing to read is as good as read: the point is that the descriptor is empty.
      [[maybe_unused]] const ssize_t got = read(wake_fd_, &count, sizeof count);
    }
    ran = RunReadyWatchers(std::span(fds).subspan(1), std::span(ids).subspan(1));
  }
  return RunDueTasks() || ran;
}

bool MainLoop::RunReadyWatchers(std::span<const pollfd> fds, std::span<const int> ids) {
  bool ran = false;
  for (size_t i = 0; i < fds.size(); ++i) {
    if (fds[i].revents == 0) continue;
    const auto found = watchers_.find(ids[i]);
    if (found == watchers_.end()) continue;
    const Task ready = found->second.ready;  // a copy: it may unwatch itself
    ready();
    ran = true;
  }
  return ran;
}

MainLoop::Task MainLoop::TakeFirst(Clock::time_point due_by, uint64_t before) {
  std::lock_guard lock(mutex_);
  for (auto it = tasks_.begin(); it != tasks_.end() && it->first.first <= due_by; ++it) {
    if (it->first.second >= before) continue;
    Task task = std::move(it->second);
    tasks_.erase(it);
    return task;
  }
  return nullptr;
}

bool MainLoop::RunDueTasks() {
  const auto now = Clock::now();
  uint64_t before = 0;
  {
    std::lock_guard lock(mutex_);
    before = next_task_;
  }
  bool ran = false;
  while (const Task task = TakeFirst(now, before)) {
    task();
    ran = true;
  }
  return ran;
}

void MainLoop::RunFor(int ms) {
  RunUntil([] { return false; }, ms);
}

bool MainLoop::RunUntil(const std::function<bool()>& done, int timeout_ms) {
  const auto end = Clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!done()) {
    int wait_ms = kConditionCheckMs;
    if (timeout_ms >= 0) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
      if (left <= 0) return false;
      wait_ms = static_cast<int>(std::min<int64_t>(left, wait_ms));
    }
    RunOnce(wait_ms);
  }
  return true;
}

bool MainLoop::Drain(int max_tasks) {
  for (int i = 0; i < max_tasks; ++i) {
    const Task task = TakeFirst(Clock::time_point::max(), std::numeric_limits<uint64_t>::max());
    if (!task) return true;
    task();
  }
  std::lock_guard lock(mutex_);
  return tasks_.empty();
}

size_t MainLoop::pending() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

void MainLoop::DropTasks() {
  std::map<Key, Task> dropped;  // outlives the lock: a task's state may post on its way out
  std::lock_guard lock(mutex_);
  dropped.swap(tasks_);
}

}  // namespace mpbp::host
