#include "base/physicalsocketserver.h"

#include <signal.h>
#include <sys/time.h>

#include <algorithm>

#include "base/asyncsocketdispatcher.h"
#include "base/descriptors.h"
#include "base/logging.h"
#include "base/signalpipedispatcher.h"
#include "base/timeutils.h"
#include "base/wakeuppipe.h"

namespace mpbp {
namespace {

// How long a Wait whose time is up may go on serving sockets that stay ready.
constexpr int32_t kDrainBudgetMs = 30;
// How long a select may block when there is no wake-up pipe to end it.
constexpr int kUnwakeableWaitMs = 50;
constexpr uint32_t kAcceptPauseMs = 100;
constexpr uint32_t kAcceptPauseLogMs = 1000;

// The shorter of two times, either of which may be kForever.
int Shorter(int a, int b) {
  if (a == kForever) return b;
  return b == kForever ? a : std::min(a, b);
}

timeval ToTimeval(int ms) { return {ms / 1000, (ms % 1000) * 1000L}; }

}  // namespace

PhysicalSocketServer::PhysicalSocketServer()
    : wakeup_(std::make_unique<WakeUpPipe>(this, &wait_flag_)) {}

PhysicalSocketServer::~PhysicalSocketServer() {
  signals_.reset();
  wakeup_.reset();
}

std::unique_ptr<Socket> PhysicalSocketServer::CreateSocket(int type) {
  return CreateSocket(AF_INET, type);
}

std::unique_ptr<Socket> PhysicalSocketServer::CreateSocket(int family, int type) {
  auto socket = std::make_unique<PhysicalSocket>(this);
  if (!socket->Create(family, type)) return nullptr;
  return socket;
}

std::unique_ptr<AsyncSocket> PhysicalSocketServer::CreateAsyncSocket(int type) {
  return CreateAsyncSocket(AF_INET, type);
}

std::unique_ptr<AsyncSocket> PhysicalSocketServer::CreateAsyncSocket(int family, int type) {
  auto socket = std::make_unique<AsyncSocketDispatcher>(this);
  if (!socket->Create(family, type)) return nullptr;
  return socket;
}

std::unique_ptr<AsyncSocketDispatcher> PhysicalSocketServer::WrapSocket(int fd) {
  auto socket = std::make_unique<AsyncSocketDispatcher>(this, UniqueFd(fd));
  if (!socket->Initialize()) return nullptr;
  return socket;
}

bool PhysicalSocketServer::Add(IoDispatcher* dispatcher) {
  if (!IsWatchableDescriptor(dispatcher->GetDescriptor())) return false;
  CritScope scope(crit_);
  if (std::find(dispatchers_.begin(), dispatchers_.end(), dispatcher) == dispatchers_.end()) {
    dispatchers_.push_back(dispatcher);
  }
  return true;
}

void PhysicalSocketServer::Remove(IoDispatcher* dispatcher) {
  CritScope scope(crit_);
  const auto found = std::find(dispatchers_.begin(), dispatchers_.end(), dispatcher);
  if (found == dispatchers_.end()) {
    LOG(LS_WARNING) << "PhysicalSocketServer asked to remove a unknown "
                    << "dispatcher, potentially from a duplicate call to Add.";
    return;
  }
  const size_t index = static_cast<size_t>(found - dispatchers_.begin());
  dispatchers_.erase(found);
  const int fd = dispatcher->GetDescriptor();
  if (readiness_ && fd >= 0) readiness_->Set(fd, 0);
  for (Round* round = rounds_; round; round = round->outer) {
    if (round->next > index) --round->next;
    // The number may be given to a new socket before the round gets there.
    if (fd >= 0) {
      FD_CLR(fd, &round->read_set);
      FD_CLR(fd, &round->write_set);
    }
  }
}

bool PhysicalSocketServer::Wait(int timeout_ms, bool process_io) {
  // A handler that waits again must not eat the wake-up of the round it is called from.
  const bool outer_woken = rounds_ && !wait_flag_;
  wait_flag_ = true;
  const bool result = ServeUntil(timeout_ms, process_io);
  if (outer_woken) wait_flag_ = false;
  return result;
}

bool PhysicalSocketServer::ServeUntil(int timeout_ms, bool process_io) {
  const int wait_ms = wakeup_->working() ? timeout_ms : Shorter(timeout_ms, kUnwakeableWaitMs);
  const uint32_t stop = TimeAfter(wait_ms);
  const bool forever = wait_ms == kForever;
  int left = wait_ms;
  for (;;) {
    const int pause_left = AcceptPauseLeft();
    const int select_ms = Shorter(forever ? kForever : std::max(0, left), pause_left);
    Round round;
    const int largest = FillSets(round, process_io, pause_left == kForever);
    timeval timeout = ToTimeval(select_ms);
    const int ready = select(largest + 1, &round.read_set, &round.write_set, nullptr,
                             select_ms == kForever ? nullptr : &timeout);
    // Nothing happened, and it is not only a pause that is over.
    if (ready == 0 && !forever && left <= select_ms) return true;
    if (ready < 0 && errno != EINTR) {
      LOG_ERR(LS_ERROR) << "select";
      return false;
    }
    if (ready > 0) DispatchReady(round);
    if (!forever) {
      left = TimeDiff(stop, Time());
      if (left <= -kDrainBudgetMs) return true;
    }
    if (!wait_flag_) return true;
  }
}

int PhysicalSocketServer::AcceptPauseLeft() {
  CritScope scope(crit_);
  if (!accept_paused_) return kForever;
  const uint32_t elapsed = Time() - *accept_paused_;
  if (elapsed < kAcceptPauseMs) return static_cast<int>(kAcceptPauseMs - elapsed);
  accept_paused_.reset();
  return kForever;
}

void PhysicalSocketServer::PauseAccepting(int error) {
  CritScope scope(crit_);
  const uint32_t now = Time();
  accept_paused_ = now;
  if (pause_logged_ && now - *pause_logged_ < kAcceptPauseLogMs) return;
  pause_logged_ = now;
  LOG(LS_ERROR) << "Cannot accept a connection, err=" << error << "; trying again every "
                << kAcceptPauseMs << " ms.";
}

int PhysicalSocketServer::FillSets(Round& round, bool process_io, bool accepting) {
  FD_ZERO(&round.read_set);
  FD_ZERO(&round.write_set);
  int largest = -1;
  CritScope scope(crit_);
  for (const IoDispatcher* dispatcher : dispatchers_) {
    if (!process_io && dispatcher != wakeup_.get()) continue;
    const int fd = dispatcher->GetDescriptor();
    uint32_t wanted = dispatcher->GetRequestedEvents();
    if (!accepting) wanted &= ~uint32_t{EVENT_ACCEPT};
    largest = std::max(largest, fd);
    if (wanted & (EVENT_READ | EVENT_ACCEPT)) FD_SET(fd, &round.read_set);
    if (wanted & (EVENT_WRITE | EVENT_CONNECT)) FD_SET(fd, &round.write_set);
  }
  return largest;
}

class PhysicalSocketServer::RoundInProgress {
 public:
  RoundInProgress(PhysicalSocketServer& server, Round& round) : server_(server) {
    round.outer = server_.rounds_;
    server_.rounds_ = &round;
  }
  RoundInProgress(const RoundInProgress&) = delete;
  RoundInProgress& operator=(const RoundInProgress&) = delete;
  ~RoundInProgress() { server_.rounds_ = server_.rounds_->outer; }

 private:
  PhysicalSocketServer& server_;
};

void PhysicalSocketServer::DispatchReady(Round& round) {
  CritScope scope(crit_);
  const RoundInProgress in_progress(*this, round);
  while (round.next < dispatchers_.size()) {
    IoDispatcher* const dispatcher = dispatchers_[round.next++];
    int error = 0;
    const uint32_t flags = TakeEvents(round, *dispatcher, &error);
    if (flags == 0) continue;
    dispatcher->OnPreEvent(flags);
    dispatcher->OnEvent(flags, error);
  }
}

uint32_t PhysicalSocketServer::TakeEvents(Round& round, const IoDispatcher& dispatcher,
                                          int* error) {
  const int fd = dispatcher.GetDescriptor();
  const bool readable = FD_ISSET(fd, &round.read_set);
  const bool writable = FD_ISSET(fd, &round.write_set);
  if (!readable && !writable) return 0;
  FD_CLR(fd, &round.read_set);
  FD_CLR(fd, &round.write_set);

  socklen_t length = sizeof(*error);
  // Fails for anything but a socket, such as a pipe: there is no error to read then.
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, error, &length) != 0) *error = 0;

  const uint32_t wanted = dispatcher.GetRequestedEvents();
  uint32_t flags = 0;
  if (readable) {
    if (wanted & EVENT_ACCEPT) {
      flags |= EVENT_ACCEPT;
    } else if (*error != 0 || dispatcher.IsDescriptorClosed()) {
      flags |= EVENT_CLOSE;
    } else {
      flags |= EVENT_READ;
    }
  }
  if (writable) {
    if (wanted & EVENT_CONNECT) {
      flags |= *error != 0 ? EVENT_CLOSE : EVENT_CONNECT;
    } else {
      flags |= EVENT_WRITE;
    }
  }
  return flags;
}

void PhysicalSocketServer::WakeUp() { wakeup_->Signal(); }

int PhysicalSocketServer::ReadyDescriptor() {
  CritScope scope(crit_);
  if (!readiness_) readiness_ = std::make_unique<ReadinessSet>();
  return readiness_->descriptor();
}

void PhysicalSocketServer::UpdateReadyDescriptor() {
  CritScope scope(crit_);
  if (!readiness_) return;
  for (const IoDispatcher* dispatcher : dispatchers_) {
    const uint32_t wanted = dispatcher->GetRequestedEvents();
    readiness_->Set(dispatcher->GetDescriptor(),
                    accept_paused_ ? wanted & ~uint32_t{EVENT_ACCEPT} : wanted);
  }
}

bool PhysicalSocketServer::SetPosixSignalHandler(int signum, void (*handler)(int)) {
  if (handler == SIG_DFL || handler == SIG_IGN) {
    if (!InstallSignalDisposition(signum, handler)) return false;
    if (signals_ && signals_->ClearHandler(signum)) signals_.reset();
    return true;
  }
  if (!signals_) signals_ = std::make_unique<SignalPipeDispatcher>(this);
  signals_->SetHandler(signum, handler);
  return InstallSignalDisposition(signum, &SignalPipe::Catch);
}

}  // namespace mpbp
