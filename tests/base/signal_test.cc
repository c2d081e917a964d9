#include "base/signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace mpbp {
namespace {

using testing::ElementsAre;

using Calls = std::vector<std::string>;

class Listener : public SlotOwner {
 public:
  Listener(std::string name, Calls* calls) : name_(std::move(name)), calls_(calls) {}
  void OnEvent(int) {
    calls_->push_back(name_);
    if (then) {
      // A copy: what it does may delete this listener.
      const auto action = then;
      action();
    }
  }
  std::function<void()> then;

 private:
  std::string name_;
  Calls* calls_;
};

class SignalTest : public testing::Test {
 protected:
  std::unique_ptr<Listener> Connected(const std::string& name) {
    auto listener = std::make_unique<Listener>(name, &calls_);
    signal_->Connect(listener.get(), &Listener::OnEvent);
    return listener;
  }

  Calls calls_;
  std::unique_ptr<Signal<int>> signal_ = std::make_unique<Signal<int>>();
};

TEST_F(SignalTest, CallsInConnectionOrderAndOnlyWhatIsStillConnected) {
  auto a = Connected("a");
  auto b = Connected("b");
  auto c = Connected("c");
  b.reset();
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("a", "c"));
  calls_.clear();
  signal_->Disconnect(a.get());
  auto d = Connected("d");
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("c", "d"));
}

TEST_F(SignalTest, AHandlerMayDeleteTheSignal) {
  auto a = Connected("a");
  auto b = Connected("b");
  a->then = [this] { signal_.reset(); };
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("a"));
}

TEST_F(SignalTest, AHandlerMayDeleteItselfAndOthers) {
  auto a = Connected("a");
  auto b = Connected("b");
  auto c = Connected("c");
  auto d = Connected("d");
  b->then = [&] {
    a.reset();  // already called
    c.reset();  // not called yet
    b.reset();
  };
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("a", "b", "d"));
  calls_.clear();
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("d"));
}

TEST_F(SignalTest, WhatAHandlerConnectsIsCalledFromTheNextEmissionOn) {
  auto a = Connected("a");
  std::vector<std::unique_ptr<Listener>> late;
  // Enough of them to move the signal's list while it is being walked.
  a->then = [&] {
    for (int i = 0; i < 100; ++i) late.push_back(Connected("late"));
  };
  auto b = Connected("b");
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("a", "b"));
  a->then = nullptr;
  calls_.clear();
  (*signal_)(1);
  EXPECT_EQ(calls_.size(), 102u);
}

TEST_F(SignalTest, AHandlerMayDisconnectAndConnectAgainAndEmit) {
  auto a = Connected("a");
  auto b = Connected("b");
  int depth = 0;
  a->then = [&] {
    if (++depth > 1) return;
    signal_->Disconnect(b.get());
    (*signal_)(2);  // inside: b is gone
    signal_->Connect(b.get(), &Listener::OnEvent);
  };
  (*signal_)(1);  // b's new connection is later than this emission
  EXPECT_THAT(calls_, ElementsAre("a", "a"));
  calls_.clear();
  (*signal_)(1);
  EXPECT_THAT(calls_, ElementsAre("a", "b"));
}

}  // namespace
}  // namespace mpbp
