// Message queues and the threads that run them.
#include "base/thread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/asyncsocketdispatcher.h"
#include "tests/base/looptest.h"
#include "tests/support/allocations.h"

namespace mpbp {
namespace {

using test::FunctionHandler;
using testing::ElementsAre;

class ThreadTest : public test::LoopTest {
 protected:
  // Calls a function when it is deleted.
  struct Payload : MessageData {
    explicit Payload(std::function<void()> on_delete) : then(std::move(on_delete)) {}
    ~Payload() override { then(); }
    std::function<void()> then;
  };
  std::unique_ptr<Payload> Counted() {
    return std::make_unique<Payload>([this] { ++deleted_; });
  }

  int deleted_ = 0;
  std::vector<uint32_t> ids_;
  FunctionHandler handler_{[this](Message* message) { ids_.push_back(message->message_id); }};
};

TEST_F(ThreadTest, DelayedMessagesComeByDueTimeAndInPostingOrderWhenItIsTheSameAndNotEarly) {
  const uint32_t start = Time();
  const uint32_t due = TimeAfter(30);
  std::vector<uint32_t> expected{97, 98};
  thread_->PostAt(due + 1, &handler_, 99);
  for (uint32_t id = 0; id < 50; ++id) {
    thread_->PostAt(due, &handler_, id);
    expected.push_back(id);
  }
  expected.push_back(99);
  thread_->PostAt(due - 1, &handler_, 98);
  thread_->Post(&handler_, 97);
  ASSERT_TRUE(PumpUntil([this] { return ids_.size() == 53; }));
  EXPECT_EQ(ids_, expected);
  EXPECT_GE(TimeDiff(Time(), start), 30);
  thread_->PostDelayed(1, &handler_);
  Message message;
  EXPECT_TRUE(thread_->Get(&message, test::kDeadlineMs));  // ends a long wait
  EXPECT_LT(TimeDiff(Time(), start), test::kDeadlineMs);
}

TEST_F(ThreadTest, WhatIsToBeDisposedOfIsDeletedAndNeverReturned) {
  thread_->Dispose(Counted());
  EXPECT_EQ(deleted_, 0);  // it may be in use on the stack
  Message message;
  EXPECT_FALSE(thread_->Get(&message, 0));
  EXPECT_EQ(deleted_, 1);

  thread_->Quit();
  thread_->Dispose(Counted());
  thread_->Post(&handler_, 1, Counted());  // dropped
  EXPECT_EQ(deleted_, 2);
  {
    MessageQueue other;
    other.Quit();
    other.Dispose(Counted());
    other.Restart();
    other.PostDelayed(100'000, &handler_, 1, Counted());
    // One that posts while the queue is destroyed.
    other.Dispose(std::make_unique<Payload>([&] { other.Dispose(Counted()); }));
  }
  EXPECT_EQ(deleted_, 5);
  ThreadManager::Instance().UnwrapCurrentThread();
  thread_.reset();
  EXPECT_EQ(deleted_, 6);
}

TEST_F(ThreadTest, ClearTakesTheMatchingOnesOutOfEveryPlace) {
  FunctionHandler other([this](Message* message) { ids_.push_back(message->message_id); });
  thread_->Post(&handler_, 1, Counted());
  const Message* peeked = nullptr;
  ASSERT_TRUE(thread_->Peek(&peeked) && thread_->Peek(&peeked));  // still the same one
  EXPECT_EQ(peeked->message_id, 1u);
  thread_->Post(&handler_, 2, Counted());
  thread_->Post(&other, 3);
  thread_->PostDelayed(1, &handler_, 1);
  thread_->PostDelayed(1, &other, 4);
  MessageList removed;
  thread_->Clear(&handler_, 1, &removed);
  EXPECT_EQ(removed.size(), 2u);
  EXPECT_EQ(deleted_, 0);
  thread_->Clear(&handler_);
  EXPECT_EQ(deleted_, 1);
  ASSERT_TRUE(thread_->Peek(&peeked));
  ASSERT_TRUE(PumpUntil([this] { return ids_.size() == 2; }));
  EXPECT_THAT(ids_, ElementsAre(3, 4));
}

TEST_F(ThreadTest, AHandlerMayDeleteItselfAndTheReceiversOfWhatComesNextInEveryQueue) {
  Thread other;
  auto victim = std::make_unique<FunctionHandler>([](Message*) { FAIL(); });
  std::unique_ptr<FunctionHandler> killer;
  killer = std::make_unique<FunctionHandler>([&](Message*) {
    victim.reset();
    killer.reset();
  });
  thread_->Post(killer.get(), 1);
  thread_->Post(victim.get(), 2, Counted());
  other.Post(victim.get(), 2, Counted());
  other.PostDelayed(0, victim.get(), 3, Counted());
  thread_->Post(killer.get(), 3);
  thread_->Post(&handler_, 4);
  ASSERT_TRUE(PumpUntil([this] { return !ids_.empty(); }));
  EXPECT_THAT(ids_, ElementsAre(4));
  EXPECT_EQ(deleted_, 3);
}

// Queues that go on one thread while handlers go on another look at each other through the list of
// all queues.
TEST_F(ThreadTest, QueuesAndHandlersMayGoOnDifferentThreadsAtTheSameTime) {
  std::atomic<bool> done{false};
  std::thread handlers([&done] {
    while (!done) FunctionHandler([](Message*) {});
  });
  for (int i = 0; i < 200; ++i) Thread().Post(&handler_, 1);
  done = true;
  handlers.join();
}

TEST_F(ThreadTest, SendRunsOnTheTargetWhoeverSendsUntilItQuits) {
  Thread worker;
  ASSERT_TRUE(worker.Start());
  EXPECT_FALSE(worker.Start() || thread_->Start());  // that one is wrapped
  std::vector<Thread*> ran_on;
  FunctionHandler handler([&](Message*) { ran_on.push_back(Thread::Current()); });
  worker.Send(&handler);
  std::thread([&] { worker.Send(&handler); }).join();  // a thread that is none of ours
  thread_->Send(&handler, 1, Counted());
  EXPECT_EQ(deleted_, 1);
  thread_->Quit();
  thread_->Send(&handler);
  EXPECT_THAT(ran_on, ElementsAre(&worker, &worker, thread_.get()));
  worker.Stop();
  worker.Stop();
}

TEST_F(ThreadTest, TwoThreadsMaySendToEachOther) {
  Thread threads[2];
  std::atomic<int> ran{0};
  FunctionHandler count([&](Message*) { ++ran; });
  FunctionHandler to_the_other([&](Message* message) {
    for (int i = 0; i < 300; ++i) threads[1 - message->message_id].Send(&count);
  });
  for (Thread& thread : threads) ASSERT_TRUE(thread.Start());
  for (const uint32_t i : {0, 1}) threads[i].Post(&to_the_other, i);
  // What is posted while they wait for each other is delivered as well.
  for (Thread& thread : threads) thread.Post(&count);
  EXPECT_TRUE(PumpUntil([&] { return ran == 602; }));
}

TEST_F(ThreadTest, DestroyingTheTargetReleasesWhoSendsToIt) {
  auto target = std::make_unique<Thread>();
  std::atomic<bool> begun{false};
  Thread sender;
  FunctionHandler send([&, address = target.get()](Message*) {
    begun = true;
    address->Send(&handler_);
  });
  ASSERT_TRUE(sender.Start());
  sender.Post(&send);
  ASSERT_TRUE(PumpUntil([&] { return begun.load(); }));
  // A thread that waits for its own send runs what others send: now it waits.
  bool during = false;
  FunctionHandler probe([&](Message*) { during = true; });
  sender.Send(&probe);
  EXPECT_TRUE(during);
  target.reset();
  sender.Stop();
}

TEST_F(ThreadTest, ProcessMessagesWithoutWaitingDispatchesAllThatIsReadyAndEndsUnderAFlood) {
  for (int i = 0; i < 100; ++i) thread_->Post(&handler_);
  EXPECT_TRUE(thread_->ProcessMessages(0));
  EXPECT_EQ(ids_.size(), 100u);
  FunctionHandler quit([&](Message*) { thread_->Quit(); });
  thread_->Post(&quit);
  EXPECT_FALSE(thread_->ProcessMessages(0));
  thread_->Restart();

  int count = 0;
  FunctionHandler again([&](Message*) {
    ++count;
    thread_->Post(&again);
  });
  thread_->Post(&again);
  const uint32_t start = Time();
  EXPECT_TRUE(thread_->ProcessMessages(0));
  EXPECT_LT(TimeDiff(Time(), start), test::kDeadlineMs / 2);
  EXPECT_GT(count, 1);
}

TEST_F(ThreadTest, AnIdleRoundWithWatchedSocketsAllocatesNothing) {
  std::vector<std::unique_ptr<AsyncSocket>> sockets(3);
  for (auto& socket : sockets) {
    socket = server()->CreateAsyncSocket(SOCK_STREAM);
    ASSERT_TRUE(socket->Bind(SocketAddress::Loopback(0)) == 0 && socket->Listen(1) == 0);
  }
  thread_->PostDelayed(1'000'000, &handler_);
  Drain();
  const long before = test::allocations;
  for (int i = 0; i < 10; ++i) thread_->ProcessMessages(0);
  EXPECT_EQ(test::allocations, before);
}

}  // namespace
}  // namespace mpbp
