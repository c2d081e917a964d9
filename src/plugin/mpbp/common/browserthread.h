// The browser's main thread as a Thread of the runtime, shared by the channels that run on it.
#ifndef MPBP_PLUGIN_MPBP_COMMON_BROWSERTHREAD_H_
#define MPBP_PLUGIN_MPBP_COMMON_BROWSERTHREAD_H_

#include <memory>

#include "base/thread.h"

namespace mpbp {

// Kept in a process-wide registry, one for each browser thread, for as long as a channel uses it.
// The object lives on while somebody holds it: whoever calls out to a page from inside it holds it,
// because the page may stop the last channel and so take the entry away.
class BrowserThread {
 public:
  // While one exists, Pump does nothing: sockets and messages are in use on the stack, and a page
  // that runs a nested loop of its own must not have them served, or disposed of, underneath.
  class BusyScope {
   public:
    explicit BusyScope(BrowserThread& thread) : thread_(thread), was_busy_(thread.busy_) {
      thread_.busy_ = true;
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;
    ~BusyScope() { thread_.busy_ = was_busy_; }

   private:
    BrowserThread& thread_;
    const bool was_busy_;
  };

  // The calling thread's; counts one more channel on it. Wraps the thread first when the runtime
  // has no Thread for it.
  [[nodiscard]] static std::shared_ptr<BrowserThread> Acquire();
  // Counts one channel fewer. With the last one the entry goes, and the wrapper with it; that needs
  // the thread itself to be the caller, or the thread keeps its thread-local value (an error line).
  void Release();

  BrowserThread(const BrowserThread&) = delete;
  BrowserThread& operator=(const BrowserThread&) = delete;
  ~BrowserThread() = default;

  Thread* thread() const { return thread_; }

  // One zero-wait round: dispatches what is ready, polls the sockets once. False when one is on the
  // stack already, and nothing was served. On the thread itself.
  bool Pump();
  // Whether a round is on the stack.
  bool busy() const { return busy_; }

 private:
  BrowserThread(std::unique_ptr<Thread> wrapper, Thread* thread);

  const std::unique_ptr<Thread> wrapper_;  // null when the thread had a Thread already
  Thread* const thread_;
  int channels_ = 0;  // guarded by the registry's lock
  bool busy_ = false;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_BROWSERTHREAD_H_
