// 100,000 timers: to set them, and to run them once all are due. libwebsockets keeps its timers in
// a sorted list, to which that many cannot be added in any reasonable time.
#include <benchmark/benchmark.h>
#include <uv.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <queue>
#include <random>
#include <thread>
#include <vector>

#include "base/messagehandler.h"
#include "base/thread.h"
#include "base/threadmanager.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTimers = 100'000;
constexpr int kLongestMs = 50;

// Of this thread alone: other programs may want the core meanwhile.
double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The same delays every time, in ms.
std::vector<int> Delays() {
  std::mt19937 random(1);
  std::vector<int> delays(kTimers);
  for (int& delay : delays) delay = std::uniform_int_distribution(1, kLongestMs)(random);
  return delays;
}

// Sets timers on one thread's loop and runs those that are due.
class OurTimers : private mpbp::MessageHandler {
 public:
  OurTimers() : thread_(mpbp::ThreadManager::Instance().WrapCurrentThread()) {}
  ~OurTimers() override { mpbp::ThreadManager::Instance().UnwrapCurrentThread(); }
  void Set(int delay_ms) { thread_->PostDelayed(delay_ms, this); }
  void RunDue() { thread_->ProcessMessages(0); }
  int run() const { return run_; }

 private:
  void OnMessage(mpbp::Message*) override { ++run_; }

  int run_ = 0;
  std::unique_ptr<mpbp::Thread> thread_;
};

// A heap of due times.
class RawTimers {
 public:
  void Set(int delay_ms) {
    heap_.push({Clock::now() + std::chrono::milliseconds(delay_ms), [this] { ++run_; }});
  }
  void RunDue() {
    while (!heap_.empty() && heap_.top().due <= Clock::now()) {
      const std::function<void()> call = heap_.top().call;
      heap_.pop();
      call();
    }
  }
  int run() const { return run_; }

 private:
  struct Timer {
    Clock::time_point due;
    std::function<void()> call;
    bool operator<(const Timer& other) const { return due > other.due; }
  };

  std::priority_queue<Timer> heap_;
  int run_ = 0;
};

class UvTimers {
 public:
  UvTimers() { uv_loop_init(&loop_); }
  ~UvTimers() {
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
  }
  void Set(int delay_ms) {
    auto* const timer = new uv_timer_t;  // OnTimer deletes it
    uv_timer_init(&loop_, timer);
    timer->data = this;
    uv_timer_start(timer, OnTimer, static_cast<uint64_t>(delay_ms), 0);
  }
  void RunDue() { uv_run(&loop_, UV_RUN_NOWAIT); }
  int run() const { return run_; }

 private:
  static void OnTimer(uv_timer_t* timer) {
    ++static_cast<UvTimers*>(timer->data)->run_;
    uv_close(reinterpret_cast<uv_handle_t*>(timer),
             [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
  }

  uv_loop_t loop_;
  int run_ = 0;
};

// Measures setting when `setting`, else running.
template <typename Timers, bool setting>
void BM_timers(benchmark::State& state) {
  const std::vector<int> delays = Delays();
  for ([[maybe_unused]] auto _ : state) {
    Timers timers;
    const double start = CpuSeconds();
    for (const int delay : delays) timers.Set(delay);
    const double set = CpuSeconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(kLongestMs + 1));
    while (timers.run() < kTimers) timers.RunDue();
    state.SetIterationTime(setting ? set - start : CpuSeconds() - set);
  }
  state.SetItemsProcessed(state.iterations() * kTimers);
}

BENCHMARK(BM_timers<OurTimers, true>)->UseManualTime()->Iterations(1)->Name("timer set/ours");
BENCHMARK(BM_timers<RawTimers, true>)->UseManualTime()->Iterations(1)->Name("timer set/raw");
BENCHMARK(BM_timers<UvTimers, true>)->UseManualTime()->Iterations(1)->Name("timer set/libuv");
BENCHMARK(BM_timers<OurTimers, false>)->UseManualTime()->Iterations(1)->Name("timer run/ours");
BENCHMARK(BM_timers<RawTimers, false>)->UseManualTime()->Iterations(1)->Name("timer run/raw");
BENCHMARK(BM_timers<UvTimers, false>)->UseManualTime()->Iterations(1)->Name("timer run/libuv");

}  // namespace
