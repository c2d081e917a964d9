// Routes POSIX signals into select loops through one process-wide pipe.
#ifndef MPBP_BASE_SIGNALPIPE_H_
#define MPBP_BASE_SIGNALPIPE_H_

#include <atomic>

#include "base/descriptors.h"

namespace mpbp {

inline constexpr int kNumSignals = 128;

// Installs a catcher, SIG_DFL or SIG_IGN. False, with an error line, when the system refuses.
[[nodiscard]] bool InstallSignalDisposition(int signum, void (*handler)(int));

// One per process, made on first use and never destroyed: a signal may arrive at any time.
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

}  // namespace mpbp

#endif  // MPBP_BASE_SIGNALPIPE_H_
