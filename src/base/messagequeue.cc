#include "base/messagequeue.h"

#include <algorithm>

#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "base/staticobject.h"
#include "base/timeutils.h"

namespace mpbp {
namespace {

constexpr int32_t kMaxDeliveryDelayMs = 150;  // of a time-sensitive message

// Every queue that was ever posted to, so that a handler that goes can be cleared from all of them.
// Lock order: the registry's lock, then a queue's.
class QueueRegistry {
 public:
  static QueueRegistry& Instance() {
    static StaticObject<QueueRegistry> registry;
    return *registry;
  }
  void Add(MessageQueue* queue) {
    CritScope scope(lock_);
    queues_.push_back(queue);
  }
  void Remove(MessageQueue* queue) {
    CritScope scope(lock_);
    std::erase(queues_, queue);
  }
  void Clear(const MessageHandler* handler) {
    MessageList removed;  // deleted after the locks: payloads may hold anything
    CritScope scope(lock_);
    for (MessageQueue* queue : queues_) queue->Clear(handler, MQID_ANY, &removed);
  }

 private:
  CriticalSection lock_;
  std::vector<MessageQueue*> queues_ MPBP_GUARDED_BY(lock_);
};

// Heap order: the top is due first; due at the same time, the one posted first. Due times are
// compared as plain numbers.
bool ComesLater(const DelayedMessage& a, const DelayedMessage& b) {
  if (a.trigger_ms != b.trigger_ms) return a.trigger_ms > b.trigger_ms;
  return a.sequence > b.sequence;
}

}  // namespace

MessageHandler::~MessageHandler() { QueueRegistry::Instance().Clear(this); }

MessageQueue::MessageQueue(SocketServer* socket_server) : socket_server_(socket_server) {
  if (!socket_server_) {
    owned_server_ = std::make_unique<PhysicalSocketServer>();
    socket_server_ = owned_server_.get();
  }
  socket_server_->SetMessageQueue(this);
}

MessageQueue::~MessageQueue() {
  Unregister();
  MessageQueue::Clear(nullptr);
  // Deleting a payload may have posted another one.
  while (!immediate_.empty()) MessageQueue::Clear(nullptr);
}

void MessageQueue::Unregister() {
  // It stays marked as registered: what is posted from here on does not put it on the list again.
  if (registered_.exchange(true)) QueueRegistry::Instance().Remove(this);
}

void MessageQueue::EnsureRegistered() {
  // Outside the queue's lock, for the order of locks.
  if (!registered_.exchange(true)) QueueRegistry::Instance().Add(this);
}

void MessageQueue::Quit() {
  stopping_ = true;
  socket_server_->WakeUp();
}

bool MessageQueue::IsQuitting() { return stopping_; }

void MessageQueue::Restart() { stopping_ = false; }

bool MessageQueue::Peek(const Message** message, int wait_ms) {
  Message next;
  if (!Get(&next, wait_ms)) return false;  // gives out what an earlier Peek has kept
  CritScope scope(crit_);
  peeked_ = std::move(next);
  peek_kept_ = true;
  *message = &peeked_;
  return true;
}

bool MessageQueue::Get(Message* message, int wait_ms, bool process_io) {
  if (peek_kept_) {
    CritScope scope(crit_);
    if (peek_kept_) {
      *message = std::move(peeked_);
      peek_kept_ = false;
      return true;
    }
  }
  std::optional<uint32_t> start;  // of waiting
  for (;;) {
    ReceiveSends();
    int next_delay = kForever;
    if (TakeNext(message, &next_delay)) return true;
    if (stopping_) return false;

    if (!start) start = Time();
    int wait = next_delay;
    if (wait_ms != kForever) {
      wait = std::max(0, wait_ms - TimeDiff(Time(), *start));
      if (next_delay != kForever) wait = std::min(wait, next_delay);
    }
    if (!socket_server_->Wait(wait, process_io)) return false;
    if (wait_ms != kForever && TimeDiff(Time(), *start) >= wait_ms) return false;
  }
}

std::optional<uint32_t> MessageQueue::NextDue() {
  CritScope scope(crit_);
  if (peek_kept_ || !immediate_.empty()) return Time();
  if (delayed_.empty()) return std::nullopt;
  return delayed_.front().trigger_ms;
}

int MessageQueue::MoveDueMessages() {
  if (delayed_.empty()) return kForever;
  const uint32_t now = Time();
  while (!delayed_.empty()) {
    const uint32_t trigger = delayed_.front().trigger_ms;
    if (TimeIsLater(now, trigger)) return TimeDiff(trigger, now);
    std::pop_heap(delayed_.begin(), delayed_.end(), ComesLater);
    immediate_.push_back(std::move(delayed_.back().message));
    delayed_.pop_back();
  }
  return kForever;
}

bool MessageQueue::TakeNext(Message* message, int* next_delay) {
  for (;;) {
    MessageList taken;  // its node is freed without the lock
    {
      CritScope scope(crit_);
      *next_delay = MoveDueMessages();
      if (immediate_.empty()) return false;
      taken.splice(taken.begin(), immediate_, immediate_.begin());
    }
    *message = std::move(taken.front());
    if (message->ts_sensitive != 0) {
      const int32_t late = TimeDiff(Time(), message->ts_sensitive);
      if (late > 0) {
        LOG(LS_WARNING) << "Get: id: " << message->message_id
                        << "  delay: " << late + kMaxDeliveryDelayMs << "ms";
      }
    }
    if (message->message_id != MQID_DISPOSE) return true;
    *message = Message();  // deletes the data, without the lock
  }
}

void MessageQueue::Post(MessageHandler* handler, uint32_t id, std::unique_ptr<MessageData> data,
                        bool time_sensitive) {
  if (stopping_ && id != MQID_DISPOSE) return;
  EnsureRegistered();
  // 0 stands for "not sensitive", so the one due time that is 0 becomes 1.
  const uint32_t due = time_sensitive ? std::max<uint32_t>(1, TimeAfter(kMaxDeliveryDelayMs)) : 0;
  MessageList posted;  // made without the lock
  posted.push_back(Message{handler, id, std::move(data), due});
  CritScope scope(crit_);
  const bool was_empty = immediate_.empty();
  immediate_.splice(immediate_.end(), posted);
  // Where there was a message, the owner looks for the next one before it waits.
  if (was_empty) socket_server_->WakeUp();
}

void MessageQueue::PostDelayed(int32_t delay_ms, MessageHandler* handler, uint32_t id,
                               std::unique_ptr<MessageData> data) {
  DoDelayPost(delay_ms, TimeAfter(delay_ms), handler, id, std::move(data));
}

void MessageQueue::PostAt(uint32_t time_ms, MessageHandler* handler, uint32_t id,
                          std::unique_ptr<MessageData> data) {
  DoDelayPost(TimeDiff(time_ms, Time()), time_ms, handler, id, std::move(data));
}

void MessageQueue::DoDelayPost(int32_t delay_ms, uint32_t trigger_ms, MessageHandler* handler,
                               uint32_t id, std::unique_ptr<MessageData> data) {
  if (stopping_) return;
  EnsureRegistered();
  CritScope scope(crit_);
  delayed_.push_back({delay_ms, trigger_ms, next_sequence_, {handler, id, std::move(data), 0}});
  std::push_heap(delayed_.begin(), delayed_.end(), ComesLater);
  // A timer that is due after another one shortens no wait.
  const bool is_next = delayed_.front().sequence == next_sequence_;
  ++next_sequence_;
  if (is_next) socket_server_->WakeUp();
}

void MessageQueue::Clear(const MessageHandler* handler, uint32_t id, MessageList* removed) {
  MessageList deleted;  // outlives the lock: payloads may hold anything
  MessageList& out = removed ? *removed : deleted;
  CritScope scope(crit_);
  if (peek_kept_ && peeked_.Matches(handler, id)) {
    out.push_back(std::move(peeked_));
    peek_kept_ = false;
  }
  for (auto it = immediate_.begin(); it != immediate_.end();) {
    const auto next = std::next(it);
    if (it->Matches(handler, id)) out.splice(out.end(), immediate_, it);
    it = next;
  }
  const auto kept = std::stable_partition(
      delayed_.begin(), delayed_.end(),
      [&](const DelayedMessage& delayed) { return !delayed.message.Matches(handler, id); });
  for (auto it = kept; it != delayed_.end(); ++it) out.push_back(std::move(it->message));
  delayed_.erase(kept, delayed_.end());
  std::make_heap(delayed_.begin(), delayed_.end(), ComesLater);
}

void MessageQueue::Dispatch(Message* message) {
  if (message->handler) message->handler->OnMessage(message);
}

}  // namespace mpbp
