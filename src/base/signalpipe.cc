#include "base/signalpipe.h"

#include <signal.h>
#include <unistd.h>

#include "base/logging.h"

namespace mpbp {
bool InstallSignalDisposition(int signum, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  if (sigemptyset(&action.sa_mask) != 0) {
    LOG_ERR(LS_ERROR) << "Couldn't set mask";
    return false;
  }
  // The pipe must be there before the first signal: making it is not safe in signal context.
  SignalPipe::Instance();
  if (sigaction(signum, &action, nullptr) != 0) {
    LOG_ERR(LS_ERROR) << "Couldn't set sigaction";
    return false;
  }
  return true;
}

SignalPipe& SignalPipe::Instance() {
  static SignalPipe* const pipe = new SignalPipe;
  return *pipe;
}

SignalPipe::SignalPipe() {
  int error = 0;
  pipe_ = MakePipe(0, &error);
  if (!pipe_.read_end) {
    LOG_ERR_EX(LS_ERROR, error) << "pipe failed";
    return;
  }
  if (!SetNonBlocking(descriptor(), &error)) LOG_ERR_EX(LS_WARNING, error) << "fcntl #1 failed";
  if (!SetNonBlocking(pipe_.write_end.get(), &error)) {
    LOG_ERR_EX(LS_WARNING, error) << "fcntl #2 failed";
  }
}

void SignalPipe::Catch(int signum) {
  const int saved_errno = errno;  // of the code that was interrupted
  if (signum >= 0 && signum < kNumSignals) {
    SignalPipe& pipe = Instance();
    pipe.received_[signum] = true;
    const char byte = 0;
    // A full pipe wakes the loop as well; the flag is what counts.
    static_cast<void>(!write(pipe.pipe_.write_end.get(), &byte, 1));
  }
  errno = saved_errno;
}

}  // namespace mpbp
