#include "base/signal.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mpbp {
namespace {

class SignalTest : public testing::Test {
 protected:
  struct Listener : SlotOwner {
    Listener(std::string& all, std::string own) : calls(all), name(std::move(own)) {}
    void OnEvent(int) {
      calls += name;
      const auto action = then;  // a copy: what it does may delete this listener
      if (action) action();
    }
    std::string& calls;
    const std::string name;
    std::function<void()> then;
  };
  std::unique_ptr<Listener> Connected(const std::string& name) {
    auto listener = std::make_unique<Listener>(calls_, name);
    signal_->Connect(listener.get(), &Listener::OnEvent);
    return listener;
  }
  // Raises the signal; who was called.
  std::string Emit() {
    calls_.clear();
    (*signal_)(1);
    return calls_;
  }

  std::string calls_;
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
  EXPECT_EQ(Emit(), "abde");
  d->then = [this] { signal_.reset(); };
  EXPECT_EQ(Emit(), "d");
}

TEST_F(SignalTest, WhatAHandlerConnectsIsCalledFromTheNextEmissionOn) {
  auto a = Connected("a");
  std::vector<std::unique_ptr<Listener>> late;
  // Enough of them to move the signal's list while it is being walked.
  a->then = [&] {
    for (int i = 0; i < 100; ++i) late.push_back(Connected("z"));
  };
  auto b = Connected("b");
  EXPECT_EQ(Emit(), "ab");
  a->then = nullptr;
  EXPECT_EQ(Emit(), "ab" + std::string(100, 'z'));
}

TEST_F(SignalTest, AHandlerMayDisconnectAndConnectAgainAndEmit) {
  auto a = Connected("a"), b = Connected("b");
  int depth = 0;
  a->then = [&] {
    if (++depth > 1) return;
    signal_->Disconnect(b.get());
    (*signal_)(2);  // inside: b is gone
    signal_->Connect(b.get(), &Listener::OnEvent);
  };
  // b's new connection is later than the first emission.
  EXPECT_EQ(Emit(), "aa");
  EXPECT_EQ(Emit(), "ab");
}

}  // namespace
}  // namespace mpbp
