#include "base/messagequeue.h"

#include <gmock/gmock.h>

#include <memory>
#include <thread>
#include <vector>

#include "tests/base/looptest.h"

namespace mpbp {
namespace {

using test::CountedData;
using test::FunctionHandler;
using testing::ElementsAre;

class MessageQueueTest : public test::LoopTest {
 protected:
  void RecordId(Message* message) { ids_.push_back(message->message_id); }

  std::vector<uint32_t> ids_;
  FunctionHandler handler_{[this](Message* message) { RecordId(message); }};
};

TEST_F(MessageQueueTest, DelayedMessagesComeByDueTimeAndInPostingOrderWhenItIsTheSame) {
  const uint32_t due = TimeAfter(5);
  thread_->PostAt(due + 1, &handler_, 99);
  for (uint32_t id = 0; id < 50; ++id) thread_->PostAt(due, &handler_, id);
  thread_->PostAt(due - 1, &handler_, 98);
  thread_->Post(&handler_, 97);
  ASSERT_TRUE(PumpUntil([this] { return ids_.size() == 53; }));
  std::vector<uint32_t> expected{97, 98};
  for (uint32_t id = 0; id < 50; ++id) expected.push_back(id);
  expected.push_back(99);
  EXPECT_EQ(ids_, expected);
}

TEST_F(MessageQueueTest, ADelayedMessageIsNotEarlyAndEndsALongWait) {
  const uint32_t start = Time();
  thread_->PostDelayed(30, &handler_, 1);
  Message message;
  ASSERT_TRUE(thread_->Get(&message, test::kDeadlineMs));
  const int32_t took = TimeDiff(Time(), start);
  EXPECT_GE(took, 30);
  EXPECT_LT(took, test::kDeadlineMs / 2);
}

TEST_F(MessageQueueTest, GetWithoutWaitingGivesFalseAtOnceWhenNothingIsDue) {
  Message message;
  thread_->PostDelayed(test::kDeadlineMs, &handler_, 1);
  const uint32_t start = Time();
  EXPECT_FALSE(thread_->Get(&message, 0));
  EXPECT_LT(TimeDiff(Time(), start), 1000);
}

TEST_F(MessageQueueTest, APeekedMessageStaysForTheNextGet) {
  int deleted = 0;
  thread_->Post(&handler_, 1, std::make_unique<CountedData>(&deleted));
  thread_->Post(&handler_, 2);
  const Message* peeked = nullptr;
  ASSERT_TRUE(thread_->Peek(&peeked));
  ASSERT_TRUE(thread_->Peek(&peeked));
  EXPECT_EQ(peeked->message_id, 1u);
  Message message;
  ASSERT_TRUE(thread_->Get(&message, 0));
  EXPECT_EQ(message.message_id, 1u);
  EXPECT_EQ(deleted, 0);
  ASSERT_TRUE(thread_->Get(&message, 0));
  EXPECT_EQ(message.message_id, 2u);
  EXPECT_EQ(deleted, 1);
}

TEST_F(MessageQueueTest, WhatIsToBeDisposedOfIsDeletedAndNeverReturned) {
  int deleted = 0;
  thread_->Dispose(std::make_unique<CountedData>(&deleted));
  EXPECT_EQ(deleted, 0);  // it may be in use on the stack
  Message message;
  EXPECT_FALSE(thread_->Get(&message, 0));
  EXPECT_EQ(deleted, 1);

  thread_->Quit();
  thread_->Dispose(std::make_unique<CountedData>(&deleted));
  thread_->Post(&handler_, 1, std::make_unique<CountedData>(&deleted));  // dropped
  EXPECT_EQ(deleted, 2);
  {
    MessageQueue other;
    other.Quit();
    other.Dispose(std::make_unique<CountedData>(&deleted));
    other.Restart();
    other.PostDelayed(100'000, &handler_, 1, std::make_unique<CountedData>(&deleted));
  }
  EXPECT_EQ(deleted, 4);
  ThreadManager::Instance().UnwrapCurrentThread();
  thread_.reset();
  EXPECT_EQ(deleted, 5);
}

TEST_F(MessageQueueTest, APayloadMayPostAgainWhileTheQueueIsDestroyed) {
  class Reposting : public MessageData {
   public:
    Reposting(MessageQueue* queue, int* deleted) : queue_(queue), deleted_(deleted) {}
    ~Reposting() override { queue_->Dispose(std::make_unique<CountedData>(deleted_)); }

   private:
    MessageQueue* queue_;
    int* deleted_;
  };
  int deleted = 0;
  {
    MessageQueue queue;
    queue.Post(nullptr, MQID_DISPOSE, std::make_unique<Reposting>(&queue, &deleted));
  }
  EXPECT_EQ(deleted, 1);
}

TEST_F(MessageQueueTest, ClearTakesTheMatchingOnesOutOfEveryPlace) {
  FunctionHandler other([this](Message* message) { RecordId(message); });
  int deleted = 0;
  thread_->Post(&handler_, 1, std::make_unique<CountedData>(&deleted));
  const Message* peeked = nullptr;
  ASSERT_TRUE(thread_->Peek(&peeked));
  thread_->Post(&handler_, 2, std::make_unique<CountedData>(&deleted));
  thread_->Post(&other, 3);
  thread_->PostDelayed(1, &handler_, 1);
  thread_->PostDelayed(1, &other, 4);
  MessageList removed;
  thread_->Clear(&handler_, 1, &removed);
  EXPECT_EQ(removed.size(), 2u);
  EXPECT_EQ(deleted, 0);
  thread_->Clear(&handler_);
  EXPECT_EQ(deleted, 1);
  ASSERT_TRUE(PumpUntil([this] { return ids_.size() == 2; }));
  EXPECT_THAT(ids_, ElementsAre(3, 4));

  thread_->Post(&other, 5);
  thread_->Post(nullptr, 6);
  thread_->Clear(nullptr);
  Message message;
  EXPECT_FALSE(thread_->Get(&message, 0));
}

TEST_F(MessageQueueTest, AHandlerThatGoesTakesItsMessagesOutOfEveryQueue) {
  Thread other;
  int deleted = 0;
  auto handler = std::make_unique<FunctionHandler>([this](Message* message) { RecordId(message); });
  thread_->Post(handler.get(), 1, std::make_unique<CountedData>(&deleted));
  other.Post(handler.get(), 2, std::make_unique<CountedData>(&deleted));
  other.PostDelayed(0, handler.get(), 3, std::make_unique<CountedData>(&deleted));
  handler.reset();
  EXPECT_EQ(deleted, 3);
  Message message;
  EXPECT_FALSE(thread_->Get(&message, 0));
  EXPECT_TRUE(ids_.empty());
}

TEST_F(MessageQueueTest, AHandlerMayDeleteItselfAndTheReceiversOfWhatComesNext) {
  std::unique_ptr<FunctionHandler> victim =
      std::make_unique<FunctionHandler>([this](Message* message) { RecordId(message); });
  std::unique_ptr<FunctionHandler> killer;
  killer = std::make_unique<FunctionHandler>([&](Message*) {
    victim.reset();
    killer.reset();
  });
  thread_->Post(killer.get(), 1);
  thread_->Post(victim.get(), 2);
  thread_->Post(killer.get(), 3);
  thread_->Post(&handler_, 4);
  ASSERT_TRUE(PumpUntil([this] { return !ids_.empty(); }));
  EXPECT_THAT(ids_, ElementsAre(4));
}

// Queues that go on one thread while handlers go on another look at each other through the list of
// all queues.
TEST_F(MessageQueueTest, QueuesAndHandlersMayGoOnDifferentThreadsAtTheSameTime) {
  std::atomic<bool> done{false};
  std::thread handlers([&done] {
    while (!done) FunctionHandler([](Message*) {});
  });
  for (int i = 0; i < 200; ++i) {
    Thread short_lived;
    short_lived.Post(&handler_, 1);
  }
  done = true;
  handlers.join();
}

}  // namespace
}  // namespace mpbp
