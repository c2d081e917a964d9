// Threads that others hand numbers to, each in the way of one library. Made and destroyed on one
// thread; Post: from any. `handler` runs on the loop's own thread.
#ifndef MPBP_BENCH_MICRO_LOOPS_H_
#define MPBP_BENCH_MICRO_LOOPS_H_

#include <libwebsockets.h>
#include <uv.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "base/descriptors.h"
#include "base/thread.h"

namespace mpbp::bench {

using NumberHandler = std::function<void(uint32_t)>;

// What the others lack and ours has: the queue itself.
class NumberQueue {
 public:
  explicit NumberQueue(NumberHandler handler) : handler_(std::move(handler)) {}
  // True when it was empty: the loop must be woken.
  bool Push(uint32_t number) {
    const std::lock_guard lock(mutex_);
    numbers_.push_back(number);
    return numbers_.size() == 1;
  }
  // Handles all there are.
  void Run() {
    std::deque<uint32_t> taken;
    {
      const std::lock_guard lock(mutex_);
      taken.swap(numbers_);
    }
    for (const uint32_t number : taken) handler_(number);
  }

 private:
  const NumberHandler handler_;
  std::mutex mutex_;
  std::deque<uint32_t> numbers_;
};

class OurLoop : private MessageHandler {
 public:
  static constexpr char kName[] = "ours";
  explicit OurLoop(NumberHandler handler);
  ~OurLoop() override { thread_.Stop(); }
  void Post(uint32_t number) { thread_.Post(this, number); }

 private:
  void OnMessage(Message* message) override { handler_(message->message_id); }

  const NumberHandler handler_;
  Thread thread_;
};

// A pipe and select.
class RawLoop {
 public:
  static constexpr char kName[] = "raw";
  explicit RawLoop(NumberHandler handler);
  ~RawLoop();
  void Post(uint32_t number);

 private:
  void Run();

  NumberQueue queue_;
  Pipe pipe_;
  std::thread thread_;
};

class UvLoop {
 public:
  static constexpr char kName[] = "libuv";
  explicit UvLoop(NumberHandler handler);
  ~UvLoop();
  void Post(uint32_t number);

 private:
  NumberQueue queue_;
  uv_loop_t loop_;
  uv_async_t wake_up_;
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

class WebSocketsLoop {
 public:
  static constexpr char kName[] = "libwebsockets";
  explicit WebSocketsLoop(NumberHandler handler);
  ~WebSocketsLoop();
  void Post(uint32_t number);

 private:
  static int OnEvent(lws* connection, lws_callback_reasons reason, void* user, void* in,
                     size_t length);

  NumberQueue queue_;
  lws_context* context_ = nullptr;
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

}  // namespace mpbp::bench

#endif  // MPBP_BENCH_MICRO_LOOPS_H_
