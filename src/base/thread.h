// Threads that own a message queue.
#ifndef MPBP_BASE_THREAD_H_
#define MPBP_BASE_THREAD_H_

#include <pthread.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>

#include "base/messagequeue.h"
#include "base/runnable.h"

namespace mpbp {

enum ThreadPriority : int32_t {
  PRIORITY_IDLE = -1,  // not supported: runs as normal, with a warning
  PRIORITY_NORMAL = 0,
  PRIORITY_ABOVE_NORMAL = 1,
  PRIORITY_HIGH = 2,
};

class Thread : public MessageQueue {
 public:
  explicit Thread(SocketServer* socket_server = nullptr);
  // Stops the thread and deletes what is pending. A class that overrides Run or a handler's target
  // calls Stop in its own destructor.
  ~Thread() override;

  // The Thread of the calling operating-system thread, or null.
  static Thread* Current();
  bool IsCurrent() const { return Current() == this; }

  // Before Start. The name gets " 0x" and the object's address appended when one is given.
  // False, and nothing changed, once started.
  [[nodiscard]] bool SetName(const std::string& name, const void* object);
  [[nodiscard]] bool SetPriority(ThreadPriority priority);
  const std::string& name() const { return name_; }

  // Starts an operating-system thread that runs `runnable`, or Run() when it is null. `runnable` is
  // borrowed until the thread ends. False for a wrapped or started thread, or when the system
  // refuses; a priority that cannot be had is only logged.
  [[nodiscard]] bool Start(Runnable* runnable = nullptr);
  // Quits and joins. Harmless when not started. Not from the thread itself.
  void Stop();
  // From before Start: the thread deletes its own object when its work is done. Nobody joins it.
  void set_delete_self_when_complete() { delete_self_when_complete_ = true; }

  // Processes messages until quit.
  virtual void Run() { ProcessMessages(kForever); }
  // Gets and dispatches messages for `ms` (kForever: until quit); 0: dispatches every message that
  // is ready and polls the sockets once, without waiting, and stops early after 50 ms of that so
  // that a flood of messages cannot hold the caller. False when quitting. On the owning thread
  // only.
  bool ProcessMessages(int ms);

  // Runs the handler on this thread and returns when it has run. From any thread; the caller's own
  // thread runs what others send to it meanwhile, so two threads may send to each other. Returns
  // without running it when this thread is quitting.
  void Send(MessageHandler* handler, uint32_t id = 0, std::unique_ptr<MessageData> data = nullptr);

  void Clear(const MessageHandler* handler, uint32_t id = MQID_ANY,
             MessageList* removed = nullptr) override;
  void ReceiveSends() override;

 private:
  friend class ThreadManager;

  // Whether a send is over. Shared: when it is, either thread's object may go at once.
  class Completion;

  // A synchronous send that waits to be run.
  struct PendingSend {
    Message message;
    std::shared_ptr<Completion> completion;
  };

  static void* ThreadMain(void* argument);
  void ApplyPriority(pthread_attr_t* attributes) const;

  std::string name_;
  ThreadPriority priority_ = PRIORITY_NORMAL;
  bool started_ = false;
  bool owned_ = true;  // false: wraps a thread that the runtime did not create
  bool delete_self_when_complete_ = false;
  pthread_t handle_{};
  Runnable* runnable_ = nullptr;
  std::list<PendingSend> pending_sends_ MPBP_GUARDED_BY(crit_);
  std::atomic<bool> has_sends_{false};  // set before the wake-up that it is for
};

}  // namespace mpbp

#endif  // MPBP_BASE_THREAD_H_
