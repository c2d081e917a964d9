#include "base/thread.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "base/asyncsocketdispatcher.h"
#include "tests/base/looptest.h"

namespace {
thread_local long allocations = 0;
}  // namespace

// Counted, to see that an idle round allocates nothing.
void* operator new(size_t size) {
  ++allocations;
  if (void* const block = malloc(size)) return block;
  abort();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return malloc(size);
}
void operator delete(void* block) noexcept { free(block); }
void operator delete(void* block, size_t) noexcept { free(block); }

namespace mpbp {
namespace {

using test::CountedData;
using test::FunctionHandler;

class ThreadTest : public test::LoopTest {};

TEST_F(ThreadTest, RunsMessagesOnItsOwnThreadAndOnlyStartsOnce) {
  Thread worker;
  EXPECT_TRUE(worker.SetName("worker", nullptr));
  ASSERT_TRUE(worker.Start());
  EXPECT_FALSE(worker.Start());
  EXPECT_FALSE(worker.SetName("other", nullptr));
  EXPECT_EQ(worker.name(), "worker");
  EXPECT_FALSE(thread_->Start());  // wrapped
  Thread* ran_on = nullptr;
  FunctionHandler handler([&](Message*) {
    ran_on = Thread::Current();
    EXPECT_TRUE(worker.IsCurrent());
  });
  worker.Send(&handler);
  EXPECT_EQ(ran_on, &worker);
  worker.Stop();
  worker.Stop();
}

TEST_F(ThreadTest, RunsARunnableAndMayDeleteItselfAfterwards) {
  struct Flag : Runnable {
    void Run(Thread* thread) override {
      current = Thread::Current() == thread;
      ran = true;
    }
    std::atomic<bool> current{false};
    std::atomic<bool> ran{false};
  };
  const int descriptors = test::OpenDescriptors();
  Flag flag;
  Thread* const detached = new Thread;
  detached->set_delete_self_when_complete();
  ASSERT_TRUE(detached->Start(&flag));
  EXPECT_TRUE(PumpUntil([&] { return flag.ran.load(); }));
  EXPECT_TRUE(flag.current);
  EXPECT_TRUE(PumpUntil([&] { return test::OpenDescriptors() == descriptors; }));
}

TEST_F(ThreadTest, SendToItselfRunsAtOnceAndDeletesThePayload) {
  int deleted = 0;
  bool ran = false;
  FunctionHandler handler([&](Message*) { ran = true; });
  thread_->Send(&handler, 1, std::make_unique<CountedData>(&deleted));
  EXPECT_TRUE(ran);
  EXPECT_EQ(deleted, 1);
  thread_->Quit();
  ran = false;
  thread_->Send(&handler);
  EXPECT_FALSE(ran);
}

TEST_F(ThreadTest, TwoThreadsMaySendToEachOther) {
  Thread a;
  Thread b;
  ASSERT_TRUE(a.Start());
  ASSERT_TRUE(b.Start());
  std::atomic<int> ran{0};
  FunctionHandler count([&](Message*) { ++ran; });
  FunctionHandler a_to_b([&](Message*) {
    for (int i = 0; i < 300; ++i) b.Send(&count);
  });
  FunctionHandler b_to_a([&](Message*) {
    for (int i = 0; i < 300; ++i) a.Send(&count);
  });
  a.Post(&a_to_b);
  b.Post(&b_to_a);
  EXPECT_TRUE(PumpUntil([&] { return ran == 600; }));
  // What was posted while they waited for each other is still delivered.
  a.Post(&count);
  b.Post(&count);
  EXPECT_TRUE(PumpUntil([&] { return ran == 602; }));
}

TEST_F(ThreadTest, ASendFromAThreadThatIsNoneOfOursWorks) {
  Thread target;
  ASSERT_TRUE(target.Start());
  std::atomic<bool> ran{false};
  FunctionHandler handler([&](Message*) { ran = true; });
  std::thread stranger([&] {
    target.Send(&handler);
    EXPECT_EQ(Thread::Current(), nullptr);
  });
  stranger.join();
  EXPECT_TRUE(ran);
}

TEST_F(ThreadTest, ClearReleasesASenderWithoutRunningItsMessage) {
  Thread target;  // not started: nothing would ever run the message
  std::atomic<bool> released{false};
  bool ran = false;
  int deleted = 0;
  FunctionHandler handler([&](Message*) { ran = true; });
  std::thread sender([&] {
    target.Send(&handler, 7, std::make_unique<CountedData>(&deleted));
    released = true;
  });
  MessageList removed;
  EXPECT_TRUE(PumpUntil([&] {
    target.Clear(&handler, 7, &removed);
    return !removed.empty();
  }));
  sender.join();
  EXPECT_TRUE(released);
  EXPECT_FALSE(ran);
  EXPECT_EQ(deleted, 0);
  removed.clear();
  EXPECT_EQ(deleted, 1);
}

TEST_F(ThreadTest, DestroyingTheTargetReleasesWhoSendsToIt) {
  auto target = std::make_unique<Thread>();
  FunctionHandler handler([](Message*) {});
  std::atomic<bool> begun{false};
  Thread* const address = target.get();
  Thread sender;
  FunctionHandler send([&](Message*) {
    begun = true;
    address->Send(&handler);
  });
  // The socket server of `sender` says when it has begun to wait: it runs sends meanwhile.
  ASSERT_TRUE(sender.Start());
  sender.Post(&send);
  ASSERT_TRUE(PumpUntil([&] { return begun.load(); }));
  bool during = false;
  FunctionHandler probe([&](Message*) { during = true; });
  sender.Send(&probe);
  EXPECT_TRUE(during);
  target.reset();
  sender.Stop();
}

TEST_F(ThreadTest, ProcessMessagesWithoutWaitingEndsUnderAFloodOfMessages) {
  int count = 0;
  FunctionHandler again([&](Message* message) {
    ++count;
    thread_->Post(&again, message->message_id);
  });
  thread_->Post(&again, 1);
  const uint32_t start = Time();
  EXPECT_TRUE(thread_->ProcessMessages(0));
  EXPECT_LT(TimeDiff(Time(), start), 2000);
  EXPECT_GT(count, 1);
}

TEST_F(ThreadTest, ProcessMessagesWithoutWaitingDispatchesAllThatIsReady) {
  int count = 0;
  FunctionHandler handler([&](Message*) { ++count; });
  for (int i = 0; i < 100; ++i) thread_->Post(&handler);
  EXPECT_TRUE(thread_->ProcessMessages(0));
  EXPECT_EQ(count, 100);
  FunctionHandler quit([&](Message*) { thread_->Quit(); });
  thread_->Post(&quit);
  thread_->Post(&handler);
  EXPECT_FALSE(thread_->ProcessMessages(0));
  thread_->Restart();
  EXPECT_TRUE(thread_->ProcessMessages(0));
}

TEST_F(ThreadTest, AnIdleRoundWithWatchedSocketsAllocatesNothing) {
  std::vector<std::unique_ptr<AsyncSocket>> sockets;
  for (int i = 0; i < 3; ++i) {
    sockets.push_back(server()->CreateAsyncSocket(SOCK_STREAM));
    ASSERT_EQ(sockets.back()->Bind(SocketAddress::Loopback(0)), 0);
    ASSERT_EQ(sockets.back()->Listen(1), 0);
  }
  FunctionHandler handler([](Message*) {});
  thread_->PostDelayed(1'000'000, &handler);
  Drain();
  const long before = allocations;
  for (int i = 0; i < 10; ++i) thread_->ProcessMessages(0);
  EXPECT_EQ(allocations, before);
}

}  // namespace
}  // namespace mpbp
