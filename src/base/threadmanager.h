#ifndef MPBP_BASE_THREADMANAGER_H_
#define MPBP_BASE_THREADMANAGER_H_

#include <pthread.h>

#include <memory>

#include "base/thread.h"

namespace mpbp {

template <typename T>
class StaticObject;

// Knows each operating-system thread's Thread. Every operation is about the calling thread.
class ThreadManager {
 public:
  static ThreadManager& Instance();
  ThreadManager(const ThreadManager&) = delete;
  ThreadManager& operator=(const ThreadManager&) = delete;

  Thread* CurrentThread() const;
  void SetCurrentThread(Thread* thread);
  // Makes a Thread for the calling thread, if it has none, and records it. The result is null when
  // there was one; otherwise the caller owns it, and unwraps before destroying it.
  [[nodiscard]] std::unique_ptr<Thread> WrapCurrentThread();
  void UnwrapCurrentThread();

 private:
  friend class StaticObject<ThreadManager>;

  ThreadManager();
  ~ThreadManager();

  pthread_key_t key_{};
  bool key_made_ = false;
};

}  // namespace mpbp

#endif  // MPBP_BASE_THREADMANAGER_H_
