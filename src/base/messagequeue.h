// A thread's queue of messages. Waiting for the next message is waiting in the queue's socket
// server, so that one loop serves messages and sockets.
#ifndef MPBP_BASE_MESSAGEQUEUE_H_
#define MPBP_BASE_MESSAGEQUEUE_H_

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "base/criticalsection.h"
#include "base/messagehandler.h"
#include "base/socketserver.h"

namespace mpbp {

using MessageList = std::list<Message>;

// A message that becomes due later.
struct DelayedMessage {
  int32_t delay_ms;     // as requested
  uint32_t trigger_ms;  // Time() at which it is due
  uint32_t sequence;    // the queue's running count of delayed posts
  Message message;
};

// Post, PostDelayed, PostAt, Clear, Quit, IsQuitting and Restart: from any thread, and from inside
// any handler. Get and Peek: on the owning thread only.
class MessageQueue {
 public:
  // Without a socket server the queue makes a PhysicalSocketServer of its own. A server that is
  // given is borrowed for the life of the queue.
  explicit MessageQueue(SocketServer* socket_server = nullptr);
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;
  // Deletes what is still queued, messages to be disposed of included.
  virtual ~MessageQueue();

  SocketServer* socket_server() const { return socket_server_; }

  // From here on posts are dropped and Get returns false, until Restart.
  virtual void Quit();
  virtual bool IsQuitting();
  virtual void Restart();

  // Takes the next message. Waits up to wait_ms for one (kForever: without limit; 0: one poll of
  // the sockets). False when none came, when waiting failed, or when quitting.
  [[nodiscard]] virtual bool Get(Message* message, int wait_ms = kForever, bool process_io = true);
  // Like Get, but the message stays with the queue for the next Get: *message borrows its data, for
  // reading only and until that Get.
  [[nodiscard]] virtual bool Peek(const Message** message, int wait_ms = 0);

  // When the next message is due, as Time() counts; nothing while there is none. From any thread.
  std::optional<uint32_t> NextDue();

  // A time-sensitive message that is delivered more than 150 ms after its post logs a warning.
  // On a quitting queue the message and its data are dropped; only MQID_DISPOSE is still kept, and
  // is deleted with the queue at the latest: what is disposed of may be in use on the stack.
  virtual void Post(MessageHandler* handler, uint32_t id = 0,
                    std::unique_ptr<MessageData> data = nullptr, bool time_sensitive = false);
  virtual void PostDelayed(int32_t delay_ms, MessageHandler* handler, uint32_t id = 0,
                           std::unique_ptr<MessageData> data = nullptr);
  virtual void PostAt(uint32_t time_ms, MessageHandler* handler, uint32_t id = 0,
                      std::unique_ptr<MessageData> data = nullptr);
  // Removes the matching messages (a null handler matches all) into `removed`, or deletes them.
  virtual void Clear(const MessageHandler* handler, uint32_t id = MQID_ANY,
                     MessageList* removed = nullptr);
  virtual void Dispatch(Message* message);
  // Runs what other threads have sent synchronously; nothing here, see Thread.
  virtual void ReceiveSends() {}

  // Has `object` deleted on the owning thread, at its next round and never inside this call.
  template <typename T>
  void Dispose(std::unique_ptr<T> object) {
    if (object) {
      Post(nullptr, MQID_DISPOSE, std::make_unique<DisposeData<T>>(std::move(object)));
    }
  }

 protected:
  // Takes the queue off the list that handlers clear themselves from. Destructors of derived
  // classes call it before anything of theirs goes: that list calls the virtual Clear.
  void Unregister();
  bool stopping() const { return stopping_; }

  CriticalSection crit_;  // never held while a handler runs

 private:
  void EnsureRegistered();
  void DoDelayPost(int32_t delay_ms, uint32_t trigger_ms, MessageHandler* handler, uint32_t id,
                   std::unique_ptr<MessageData> data);
  // Moves what is due to the immediate queue; the wait until the next one, or kForever.
  [[nodiscard]] int MoveDueMessages() MPBP_REQUIRES(crit_);
  // Moves what is due and takes the head of the immediate queue, deleting what is to be disposed of
  // on the way. False, with the wait until the next timer, when there is none.
  [[nodiscard]] bool TakeNext(Message* message, int* next_delay);

  std::unique_ptr<SocketServer> owned_server_;
  SocketServer* socket_server_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> registered_{false};
  std::atomic<bool> peek_kept_{false};  // set by the owner alone, cleared with the lock held
  Message peeked_ MPBP_GUARDED_BY(crit_);
  MessageList immediate_ MPBP_GUARDED_BY(crit_);
  // A heap, the earliest on top.
  std::vector<DelayedMessage> delayed_ MPBP_GUARDED_BY(crit_);
  uint32_t next_sequence_ MPBP_GUARDED_BY(crit_) = 0;
};

}  // namespace mpbp

#endif  // MPBP_BASE_MESSAGEQUEUE_H_
