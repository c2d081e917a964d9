// The select loop under a message queue.
#ifndef MPBP_BASE_PHYSICALSOCKETSERVER_H_
#define MPBP_BASE_PHYSICALSOCKETSERVER_H_

#include <sys/select.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/criticalsection.h"
#include "base/iodispatcher.h"
#include "base/readinessset.h"
#include "base/socketserver.h"

namespace mpbp {

class AsyncSocketDispatcher;
class SignalPipeDispatcher;
class WakeUpPipe;

// Wait and SetPosixSignalHandler: on the owning thread. WakeUp, Add and Remove: from any thread.
// The lock is held while events are dispatched, not during select, so a handler may add, remove,
// close or delete any dispatcher.
class PhysicalSocketServer : public SocketServer {
 public:
  PhysicalSocketServer();
  ~PhysicalSocketServer() override;

  [[nodiscard]] std::unique_ptr<Socket> CreateSocket(int type) override;
  [[nodiscard]] std::unique_ptr<Socket> CreateSocket(int family, int type) override;
  [[nodiscard]] std::unique_ptr<AsyncSocket> CreateAsyncSocket(int type) override;
  [[nodiscard]] std::unique_ptr<AsyncSocket> CreateAsyncSocket(int family, int type) override;
  void SetMessageQueue(MessageQueue*) override {}

  // One round: fill the descriptor sets, select, dispatch what is ready, see how much time is left,
  // go on or not. Once the time is up it goes on only while there is something ready, and for 30 ms
  // at most, so that a peer that never stops sending cannot hold the caller. False when select
  // failed.
  [[nodiscard]] bool Wait(int timeout_ms, bool process_io) override;
  void WakeUp() override;
  int ReadyDescriptor() override;
  void UpdateReadyDescriptor() override;

  // Runs `handler` (signal number) on this loop whenever the process gets the signal; SIG_DFL and
  // SIG_IGN are installed as they are. False when the system refuses.
  [[nodiscard]] bool SetPosixSignalHandler(int signum, void (*handler)(int));

  // Watches `dispatcher`, borrowed until Remove. Adding twice is harmless. False, with an error
  // line, for a descriptor that select cannot watch (at or above FD_SETSIZE).
  [[nodiscard]] bool Add(IoDispatcher* dispatcher);
  void Remove(IoDispatcher* dispatcher);

  // No socket is asked to accept for the next 100 ms: the connection that `error` (an errno value)
  // keeps from being accepted stays ready, and the loop would spin on it. An error line, but not
  // more than one a second.
  void PauseAccepting(int error);

  // Takes over a connected descriptor. Null, with the descriptor closed, when it cannot be watched.
  [[nodiscard]] std::unique_ptr<AsyncSocketDispatcher> WrapSocket(int fd);

 private:
  // One dispatch round; handlers may wait again, so there may be several.
  struct Round {
    fd_set read_set;
    fd_set write_set;
    size_t next = 0;  // index of the dispatcher that comes next
    Round* outer = nullptr;
  };
  // While it exists, Remove knows of the round.
  class RoundInProgress;

  // The rounds of one Wait.
  [[nodiscard]] bool ServeUntil(int timeout_ms, bool process_io);
  // The largest descriptor in the sets, -1 for none.
  int FillSets(Round& round, bool process_io, bool accepting);
  // Milliseconds until accepting goes on; kForever when nothing holds it up.
  int AcceptPauseLeft();
  void DispatchReady(Round& round);
  // The events of one dispatcher, taken out of the round's sets.
  [[nodiscard]] uint32_t TakeEvents(Round& round, const IoDispatcher& dispatcher, int* error);

  CriticalSection crit_;
  std::vector<IoDispatcher*> dispatchers_ MPBP_GUARDED_BY(crit_);  // in insertion order
  // Innermost first; on the stacks of DispatchReady. Written by the owning thread with the lock
  // held.
  Round* rounds_ = nullptr;
  std::unique_ptr<ReadinessSet> readiness_ MPBP_GUARDED_BY(crit_);  // made on demand
  std::optional<uint32_t> accept_paused_ MPBP_GUARDED_BY(crit_);    // Time() of the last pause
  std::optional<uint32_t> pause_logged_ MPBP_GUARDED_BY(crit_);  // Time() of the last line about it
  bool wait_flag_ = false;  // of the owning thread: Wait goes on
  std::unique_ptr<WakeUpPipe> wakeup_;
  std::unique_ptr<SignalPipeDispatcher> signals_;  // made on demand
};

}  // namespace mpbp

#endif  // MPBP_BASE_PHYSICALSOCKETSERVER_H_
