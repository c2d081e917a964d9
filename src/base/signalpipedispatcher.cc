#include "base/signalpipedispatcher.h"

#include <unistd.h>

#include "base/logging.h"
#include "base/physicalsocketserver.h"

namespace mpbp {

SignalPipeDispatcher::SignalPipeDispatcher(PhysicalSocketServer* server)
    : server_(server), added_(server->Add(this)) {}

SignalPipeDispatcher::~SignalPipeDispatcher() {
  if (added_) server_->Remove(this);
}

bool SignalPipeDispatcher::ClearHandler(int signum) {
  handlers_.erase(signum);
  return handlers_.empty();
}

void SignalPipeDispatcher::OnPreEvent(uint32_t) {
  char bytes[16];
  const ssize_t count = read(GetDescriptor(), bytes, sizeof(bytes));
  if (count < 0) {
    LOG_ERR(LS_WARNING) << "Error in read()";
  } else if (count == 0) {
    LOG(LS_WARNING) << "Should have read at least one byte";
  }
}

void SignalPipeDispatcher::OnEvent(uint32_t, int) {
  for (int signum = 0; signum < kNumSignals; ++signum) {
    if (!SignalPipe::Instance().TakeReceived(signum)) continue;
    const auto found = handlers_.find(signum);
    if (found == handlers_.end()) {
      LOG(LS_INFO) << "Received signal with no handler: " << signum;
      continue;
    }
    const LifeToken::Watch alive = life_.watch();
    found->second(signum);
    if (!alive) return;  // the handler took the last handler away
  }
}

}  // namespace mpbp
