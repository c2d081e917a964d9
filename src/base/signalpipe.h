// Routes POSIX signals into select loops through one process-wide pipe.
#ifndef MPBP_BASE_SIGNALPIPE_H_
#define MPBP_BASE_SIGNALPIPE_H_

#include <atomic>
#include <map>

#include "base/descriptors.h"
#include "base/iodispatcher.h"
#include "base/lifetoken.h"

namespace mpbp {

class PhysicalSocketServer;

inline constexpr int kNumSignals = 128;

// Installs a catcher, SIG_DFL or SIG_IGN. False, with an error line, when the system refuses.
[[nodiscard]] bool InstallSignalDisposition(int signum, void (*handler)(int));

// One a process, made on first use and never destroyed: a signal may arrive at any time.
class SignalPipe {
 public:
  static SignalPipe& Instance();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;

  // The catcher: runs in signal context, stores a flag and writes one byte. Drops numbers of
  // kNumSignals or more.
  static void Catch(int signum);

  int descriptor() const { return pipe_.read_end.get(); }
  // Whether the signal came since the last call.
  [[nodiscard]] bool TakeReceived(int signum) { return received_[signum].exchange(false); }

 private:
  SignalPipe();

  Pipe pipe_;
  std::atomic<bool> received_[kNumSignals] = {};
};

// Serves one loop. Owned by its server, to which it adds itself.
class SignalPipeDispatcher : public IoDispatcher {
 public:
  explicit SignalPipeDispatcher(PhysicalSocketServer* server);
  ~SignalPipeDispatcher() override;

  void SetHandler(int signum, void (*handler)(int)) { handlers_[signum] = handler; }
  // True when no handler is left.
  [[nodiscard]] bool ClearHandler(int signum);

  uint32_t GetRequestedEvents() const override { return EVENT_READ; }
  void OnPreEvent(uint32_t flags) override;
  void OnEvent(uint32_t flags, int error) override;
  int GetDescriptor() const override { return SignalPipe::Instance().descriptor(); }
  bool IsDescriptorClosed() const override { return false; }

 private:
  PhysicalSocketServer* server_;
  bool added_;
  std::map<int, void (*)(int)> handlers_;
  LifeToken life_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_SIGNALPIPE_H_
