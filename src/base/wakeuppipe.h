// Ends a select from another thread. Any number of wake-ups before the loop runs cost one byte.
#ifndef MPBP_BASE_WAKEUPPIPE_H_
#define MPBP_BASE_WAKEUPPIPE_H_

#include <atomic>

#include "base/criticalsection.h"
#include "base/descriptors.h"
#include "base/iodispatcher.h"

namespace mpbp {

class PhysicalSocketServer;

class WakeUpPipe : public IoDispatcher {
 public:
  // Adds itself to `server`. *wait_flag is set to false when a wake-up is dispatched. Both borrowed
  // for life.
  WakeUpPipe(PhysicalSocketServer* server, bool* wait_flag);
  ~WakeUpPipe() override;

  // False when the system gave no pipe: nothing can be woken then.
  bool working() const { return added_; }

  void Signal();  // from any thread

  uint32_t GetRequestedEvents() const override { return EVENT_READ; }
  void OnPreEvent(uint32_t flags) override;
  void OnEvent(uint32_t flags, int error) override;
  int GetDescriptor() const override { return pipe_.read_end.get(); }
  bool IsDescriptorClosed() const override { return false; }

 private:
  PhysicalSocketServer* server_;
  bool* wait_flag_;
  const Pipe pipe_;
  bool added_ = false;
  CriticalSection crit_;
  std::atomic<bool> signaled_{false};  // a byte is in the pipe; written with the lock held
};

}  // namespace mpbp

#endif  // MPBP_BASE_WAKEUPPIPE_H_
