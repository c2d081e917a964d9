// Work on a thread of its own that must not block the owner's thread, such as name resolution.
#ifndef MPBP_BASE_SIGNALTHREAD_H_
#define MPBP_BASE_SIGNALTHREAD_H_

#include <memory>

#include "base/messagehandler.h"
#include "base/signal.h"

namespace mpbp {

// Used on one thread that has a Thread object; destroyed on it, before that object.
class SignalThread : private MessageHandler {
 public:
  // What the worker does. The worker keeps it alive while it runs, also when the SignalThread that
  // started it is gone: it must own everything it touches.
  class Work {
   public:
    Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    virtual ~Work() = default;
    virtual void DoWork() = 0;  // on the worker thread
  };

  explicit SignalThread(std::shared_ptr<Work> work);
  // Never waits: work in progress goes on by itself and its end is not signalled.
  ~SignalThread() override;

  // Once. False when no thread could be started, or the caller's thread has no Thread object.
  [[nodiscard]] bool Start();

  // On the owner's thread, after DoWork has returned. The handler may delete this object.
  Signal<SignalThread*> SignalWorkDone;

 private:
  class Job;

  void OnMessage(Message* message) override;

  std::shared_ptr<Work> work_;
  std::shared_ptr<Job> job_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_SIGNALTHREAD_H_
