// Posts and wake-ups between two threads.
#include <benchmark/benchmark.h>

#include <atomic>

#include "bench/micro/loops.h"

namespace {

using namespace mpbp::bench;

constexpr uint32_t kBurst = 10'000;

// One thread posts, the other one handles; each iteration waits until the whole burst is handled.
template <typename Loop>
void BM_post(benchmark::State& state) {
  std::atomic<bool> done = false;
  Loop loop([&](uint32_t number) {
    if (number + 1 < kBurst) return;
    done = true;
    done.notify_one();
  });
  for ([[maybe_unused]] auto _ : state) {
    done = false;
    for (uint32_t i = 0; i < kBurst; ++i) loop.Post(i);
    done.wait(false);
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}

// Two threads that wait for each other; an iteration is kBurst / 10 round trips of two wake-ups.
template <typename Loop>
void BM_wake_up(benchmark::State& state) {
  constexpr uint32_t kTrips = kBurst / 10;
  std::atomic<bool> done = false;
  Loop* near_loop = nullptr;
  Loop far_loop([&](uint32_t number) { near_loop->Post(number); });
  Loop loop([&](uint32_t number) {
    if (number < kTrips) {
      far_loop.Post(number + 1);
      return;
    }
    done = true;
    done.notify_one();
  });
  near_loop = &loop;
  for ([[maybe_unused]] auto _ : state) {
    done = false;
    far_loop.Post(1);
    done.wait(false);
  }
  state.SetItemsProcessed(state.iterations() * kTrips * 2);
}

// The time of the clock: most of a wake-up is spent waiting.
BENCHMARK(BM_post<OurLoop>)->UseRealTime()->Name("post/ours");
BENCHMARK(BM_post<RawLoop>)->UseRealTime()->Name("post/raw");
BENCHMARK(BM_post<UvLoop>)->UseRealTime()->Name("post/libuv");
BENCHMARK(BM_post<WebSocketsLoop>)->UseRealTime()->Name("post/libwebsockets");
BENCHMARK(BM_wake_up<OurLoop>)->UseRealTime()->Name("wake-up/ours");
BENCHMARK(BM_wake_up<RawLoop>)->UseRealTime()->Name("wake-up/raw");
BENCHMARK(BM_wake_up<UvLoop>)->UseRealTime()->Name("wake-up/libuv");
BENCHMARK(BM_wake_up<WebSocketsLoop>)->UseRealTime()->Name("wake-up/libwebsockets");

}  // namespace
