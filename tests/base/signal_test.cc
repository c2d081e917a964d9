#include "base/signal.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mpbp {
namespace {

using testing::ElementsAre;

class SignalTest : public testing::Test {
 protected:
  struct Listener : SlotOwner {
    void OnEvent(int) {
      calls->push_back(name);
      const auto action = then;  // a copy: what it does may delete this listener
      if (action) action();
    }
    std::vector<std::string>* calls;
    std::string name;
    std::function<void()> then;
  };
  std::unique_ptr<Listener> Connected(const std::string& name) {
    auto listener = std::make_unique<Listener>();
    listener->calls = &calls_;
    listener->name = name;
    signal_->Connect(listener.get(), &Listener::OnEvent);
    return listener;
  }
  // Raises the signal; who was called.
  std::vector<std::string> Emit() {
    calls_.clear();
    (*signal_)(1);
    return calls_;
  }

  std::vector<std::string> calls_;
  std::unique_ptr<Signal<int>> signal_ = std::make_unique<Signal<int>>();
};

TEST_F(SignalTest, AHandlerMayDeleteItselfAndOthersAndTheSignal) {
  auto a = Connected("a"), b = Connected("b"), c = Connected("c"), d = Connected("d"),
       e = Connected("e");
  b->then = [&] {
    a.reset();  // already called
    c.reset();  // not called yet
    b.reset();
  };
  EXPECT_THAT(Emit(), ElementsAre("a", "b", "d", "e"));
  d->then = [this] { signal_.reset(); };
  EXPECT_THAT(Emit(), ElementsAre("d"));
}

TEST_F(SignalTest, WhatAHandlerConnectsIsCalledFromTheNextEmissionOn) {
  auto a = Connected("a");
  std::vector<std::unique_ptr<Listener>> late;
  // Enough of them to move the signal's list while it is being walked.
  a->then = [&] {
    for (int i = 0; i < 100; ++i) late.push_back(Connected("late"));
  };
  auto b = Connected("b");
  EXPECT_THAT(Emit(), ElementsAre("a", "b"));
  a->then = nullptr;
  EXPECT_EQ(Emit().size(), 102u);
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
  // b's new connection is later than the first emission.
  EXPECT_THAT(Emit(), ElementsAre("a", "a"));
  EXPECT_THAT(Emit(), ElementsAre("a", "b"));
}

}  // namespace
}  // namespace mpbp
