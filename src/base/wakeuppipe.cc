#include "base/wakeuppipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/logging.h"
#include "base/physicalsocketserver.h"

namespace mpbp {

WakeUpPipe::WakeUpPipe(PhysicalSocketServer* server, bool* wait_flag)
    : server_(server), wait_flag_(wait_flag), pipe_(MakePipe(O_NONBLOCK, nullptr)) {
  if (!pipe_.read_end) {
    LOG(LS_ERROR) << "pipe failed";
    return;
  }
  added_ = server_->Add(this);
}

WakeUpPipe::~WakeUpPipe() {
  if (added_) server_->Remove(this);
}

void WakeUpPipe::Signal() {
  // The byte is there: whoever takes it out looks at the queue afterwards.
  if (!added_ || signaled_) return;
  CritScope scope(crit_);
  if (signaled_) return;
  const char byte = 0;
  if (write(pipe_.write_end.get(), &byte, 1) == 1) signaled_ = true;
}

void WakeUpPipe::OnPreEvent(uint32_t) {
  CritScope scope(crit_);
  if (!signaled_) return;
  char bytes[4];
  // Readable, so it does not fail; if it did, the next wake-up would write another byte.
  static_cast<void>(!read(pipe_.read_end.get(), bytes, sizeof(bytes)));
  signaled_ = false;
}

void WakeUpPipe::OnEvent(uint32_t, int) { *wait_flag_ = false; }

}  // namespace mpbp
