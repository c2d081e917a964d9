// The watchdog of a channel: five seconds after each connection it checks whether the link has been
// authorized, and if not restarts the engine, once.
#include "base/logging.h"
#include "plugin/mpbp/common/clientchannel.h"

namespace mpbp {
namespace {

constexpr int32_t kOnlineCheckDelayMs = 5000;

}  // namespace

void ClientChannel::ScheduleOnlineCheck() {
  LOG(LS_INFO) << this << ": ScheduleOnlineCheck: Online check in " << kOnlineCheckDelayMs << "ms";
  ++pending_online_checks_;
  PostDelayed(kOnlineCheckDelayMs, kMsgOnlineCheck);
}

void ClientChannel::HandleOnlineCheck() {
  LOG(LS_INFO) << this << ": HandleOnlineCheck: Starting check";
  if (!IsRunning()) {
    LOG(LS_INFO) << this << ": HandleOnlineCheck: Channel not running; aborting check";
    return;
  }
  if (pending_online_checks_-- != 1) {
    LOG(LS_WARNING) << this << ": HandleOnlineCheck: More checks pending, current check ignored";
    return;
  }
  if (state_ >= ChannelState::AUTHORIZED) {
    LOG(LS_INFO) << this << ": HandleOnlineCheck: OK; current state: " << ToNumber(state_);
    return;
  }
  if (state_ < ChannelState::NOT_CONNECTED) {
    ++bad_state_count_;
    LOG(LS_ERROR) << this << ": HandleOnlineCheck: Bad internal state:" << ToNumber(state_) << " [#"
                  << bad_state_count_ << "]";
    return;
  }
  const bool connected = state_ == ChannelState::CONNECTED;
  if (connected) Disconnect();
  if (!restart_tried_) {
    RequestRestart(connected ? "Not authorized; attempting to restart quern"
                             : "Not connected; try to restart quern");
    return;
  }
  LOG(LS_WARNING) << this << ": HandleOnlineCheck: "
                  << (connected ? "Not authorized; restart already tried, giving up"
                                : "Not connected; restart already tried, giving up");
  ++bad_state_count_;
  given_up_ = connected;
  Deliver(kDeadText);
}

}  // namespace mpbp
