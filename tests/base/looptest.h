// What tests of the event loop share: a Thread around the test's own thread, waiting with a
// deadline, handlers made of functions, and a look at the process's descriptors.
#ifndef MPBP_TESTS_BASE_LOOPTEST_H_
#define MPBP_TESTS_BASE_LOOPTEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/physicalsocketserver.h"
#include "base/thread.h"
#include "base/threadmanager.h"
#include "base/timeutils.h"

namespace mpbp::test {

inline constexpr int kDeadlineMs = 20'000;

// Calls a function for every message.
class FunctionHandler : public MessageHandler {
 public:
  explicit FunctionHandler(std::function<void(Message*)> function)
      : function_(std::move(function)) {}
  void OnMessage(Message* message) override { function_(message); }

 private:
  std::function<void(Message*)> function_;
};

// Writes down events and does what the test says about them.
struct EventRecord {
  void Note(const std::string& event) {
    events.push_back(event);
    if (then) then(event);
  }
  bool Saw(const std::string& event) const {
    return std::find(events.begin(), events.end(), event) != events.end();
  }
  std::vector<std::string> events;
  std::function<void(const std::string& event)> then;
};

inline int OpenDescriptors() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Runs the test's thread as a Thread.
class LoopTest : public testing::Test {
 protected:
  LoopTest() : thread_(ThreadManager::Instance().WrapCurrentThread()) {}
  ~LoopTest() override {
    ThreadManager::Instance().UnwrapCurrentThread();
    thread_.reset();
  }

  // Runs the loop until the condition holds; false after the deadline.
  bool PumpUntil(const std::function<bool()>& condition, int ms = kDeadlineMs) {
    const uint32_t end = TimeAfter(ms);
    while (!condition()) {
      if (!TimeIsLater(Time(), end)) return false;
      thread_->ProcessMessages(1);
    }
    return true;
  }
  void RunFor(int ms) {
    PumpUntil([] { return false; }, ms);
  }
  // Lets everything that is ready happen.
  void Drain() {
    for (int round = 0; round < 3; ++round) thread_->ProcessMessages(0);
  }
  PhysicalSocketServer* server() {
    return static_cast<PhysicalSocketServer*>(thread_->socket_server());
  }

  std::unique_ptr<Thread> thread_;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_BASE_LOOPTEST_H_
