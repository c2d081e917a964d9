#include "base/wakeuppipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/logging.h"
#include "base/physicalsocketserver.h"

namespace mpbp {

bool MakePipe(int* read_end, int* write_end) {
  int ends[2] = {-1, -1};
  const bool made = pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0;
  *read_end = ends[0];
  *write_end = ends[1];
  return made;
}

WakeUpPipe::WakeUpPipe(PhysicalSocketServer* server, bool* wait_flag)
    : server_(server), wait_flag_(wait_flag) {
  if (!MakePipe(&read_end_, &write_end_)) {
    LOG(LS_ERROR) << "pipe failed";
    return;
  }
  added_ = server_->Add(this);
}

WakeUpPipe::~WakeUpPipe() {
  if (added_) server_->Remove(this);
  if (read_end_ >= 0) close(read_end_);
  if (write_end_ >= 0) close(write_end_);
}

void WakeUpPipe::Signal() {
  if (!added_) return;
  CritScope scope(crit_);
  if (signaled_) return;
  const char byte = 0;
  if (write(write_end_, &byte, 1) == 1) signaled_ = true;
}

void WakeUpPipe::OnPreEvent(uint32_t) {
  CritScope scope(crit_);
  if (!signaled_) return;
  char bytes[4];
  // Readable, so it does not fail; if it did, the next wake-up would write another byte.
  static_cast<void>(!read(read_end_, bytes, sizeof(bytes)));
  signaled_ = false;
}

void WakeUpPipe::OnEvent(uint32_t, int) { *wait_flag_ = false; }

}  // namespace mpbp
