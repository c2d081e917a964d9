#include "plugin/mpbp/common/clientchannel.h"

#include "base/logging.h"
#include "engineprocesses.h"
#include "jsontext.h"
#include "plugin/allowlist.h"
#include "plugin/pluginutils.h"
#include "portfileutils.h"

namespace mpbp {
namespace {

constexpr int32_t kRetryDelayMs = 1000;  // before every restart and every new attempt to connect

}  // namespace

std::shared_ptr<ClientChannel> ClientChannel::Create(ClientChannelDelegate* delegate,
                                                     const std::string& url) {
  if (!IsAllowedUrl(url)) {
    LOG(LS_ERROR) << "ClientChannel::Create failed, " << url << " is not an allowed URL.";
    return nullptr;
  }
  return std::shared_ptr<ClientChannel>(new ClientChannel(delegate, url));
}

ClientChannel::ClientChannel(ClientChannelDelegate* delegate, std::string url)
    : delegate_(delegate), origin_url_(std::move(url)) {}

ClientChannel::~ClientChannel() {
  LOG(LS_VERBOSE) << this << ": ~ClientChannel: ";
  if (socket_) Stop();
}

LinkAttempt ClientChannel::Start(std::unique_ptr<PluginMessageSocket> socket) {
  LOG(LS_VERBOSE) << this << ": Start: ";
  if (!socket) {
    LOG(LS_ERROR) << this << ": Invalid argument: socket";
    return LinkAttempt::FAILED;
  }
  if (IsRunning()) {
    LOG(LS_ERROR) << this
                  << ": Called ClientChannel::Start() on a client channel which was already "
                     "running.";
    return LinkAttempt::FAILED;
  }
  // The page is called from here on; it may drop this channel, or stop it and with it the thread.
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  const std::shared_ptr<BrowserThread> thread = BrowserThread::Acquire();
  const BrowserThread::BusyScope busy(*thread);
  browser_thread_ = thread;
  thread->thread()->Clear(this);  // what an earlier run has armed is not for this one
  pending_online_checks_ = 0;
  const uint32_t run = ++run_;
  AttachSocket(std::move(socket));

  const LinkAttempt attempt = InitiateConnection();
  if (attempt != LinkAttempt::FAILED) return attempt;
  LOG(LS_INFO) << this << ": MurmelParlPlugin not running. Starting new process...";
  const bool started = StartEngine();
  if (HasEnded(run)) return LinkAttempt::ENDED;
  if (started) {
    LOG(LS_INFO) << this << ": Waiting for MurmelParlPlugin to start...";
    PostDelayed(kRetryDelayMs, kMsgConnect);
    return LinkAttempt::UNDER_WAY;
  }
  socket_.reset();
  ++run_;
  ReleaseThread();
  return LinkAttempt::FAILED;
}

void ClientChannel::AttachSocket(std::unique_ptr<PluginMessageSocket> socket) {
  socket_ = std::move(socket);
  given_up_ = false;
  socket_->SignalReadPortFile.Connect(this, &ClientChannel::OnPortFileRead);
  socket_->SignalConnected.Connect(this, &ClientChannel::OnSocketConnected);
  socket_->SignalAuthorized.Connect(this, &ClientChannel::OnSocketAuthorized);
  socket_->SignalMessage.Connect(this, &ClientChannel::OnSocketMessage);
  socket_->SignalClosed.Connect(this, &ClientChannel::OnSocketClosed);
  socket_->HoldInput(engine_held_);
  socket_->set_port_file_path(GetPortFilePath(kPluginPortFile).pathname());
  Json::Value description(Json::objectValue);
  description["url"] = origin_url_;
  socket_->set_host_description(WriteJson(description));
}

void ClientChannel::Stop() {
  LOG(LS_VERBOSE) << this << ": Stop: ";
  if (!socket_) {
    LOG(LS_ERROR) << this
                  << ": Called ClientChannel::Stop() on a client channel which was not running.";
    return;
  }
  Enter(ChannelEvent::STOPPED, "stopped");
  ++run_;
  ++link_;
  socket_->Close();
  // It may be in use on the stack.
  browser_thread_->thread()->Dispose(std::move(socket_));
  ReleaseThread();
}

void ClientChannel::HoldEngine(bool held) {
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  engine_held_ = held;
  if (socket_) socket_->HoldInput(held);
}

void ClientChannel::ReleaseThread() {
  const std::shared_ptr<BrowserThread> thread = std::move(browser_thread_);
  thread->Release();
}

void ClientChannel::OnMessage(Message* message) {
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  if (message->message_id == kMsgOnlineCheck) {
    HandleOnlineCheck();
    return;
  }
  // A timer of a run that has ended must neither bring an engine back nor go on polling.
  if (!IsRunning()) return;
  if (message->message_id == kMsgConnect) TryToConnect();
  if (message->message_id == kMsgRestart) RestartEngine();
}

void ClientChannel::TryToConnect() {
  LOG(LS_INFO) << this << ": Attempting to connect to MurmelParlPlugin...";
  if (InitiateConnection() != LinkAttempt::FAILED) return;
  LOG(LS_INFO) << this << ": Waiting for MurmelParlPlugin to start...";
  WarnOfSilentLaunch();
  PostDelayed(kRetryDelayMs, kMsgConnect);
}

void ClientChannel::RestartEngine() {
  LOG(LS_INFO) << this << ": Restarting MurmelParlPlugin...";
  const uint32_t run = run_;
  if (!StartEngine() || HasEnded(run)) return;
  LOG(LS_INFO) << this << ": Waiting for MurmelParlPlugin to start...";
  PostDelayed(kRetryDelayMs, kMsgConnect);
}

void ClientChannel::RequestRestart(const char* reason) {
  LOG(LS_WARNING) << this << ": " << reason;
  restart_tried_ = true;
  PostDelayed(kRetryDelayMs, kMsgRestart);
}

LinkAttempt ClientChannel::InitiateConnection() {
  LOG(LS_VERBOSE) << this << ": InitiateConnection: ";
  const uint32_t run = run_;
  int error = 0;
  const bool connecting = ConnectSocket(&error);
  if (HasEnded(run)) return LinkAttempt::ENDED;
  if (connecting || error != 0) SendConnectStatus(ConnectStep::CONNECT, error);
  if (connecting) {
    LOG(LS_INFO) << this << ": Initiated connection to MurmelParlPlugin";
  } else {
    LOG(LS_WARNING) << this << ": Could not initiate MurmelParlPlugin connection";
  }
  if (HasEnded(run)) return LinkAttempt::ENDED;
  return connecting ? LinkAttempt::UNDER_WAY : LinkAttempt::FAILED;
}

bool ClientChannel::ConnectSocket(int* error) {
  LOG(LS_VERBOSE) << this << ": ConnectSocket: ";
  return socket_->Connect(error);
}

void ClientChannel::Disconnect() { socket_->Close(); }

void ClientChannel::PostDelayed(int32_t delay_ms, uint32_t id) {
  browser_thread_->thread()->PostDelayed(delay_ms, this, id);
}

bool ClientChannel::StartEngine() {
  int error = 0;
  const bool started = LaunchEngineProcess(&error);
  SendConnectStatus(ConnectStep::ENGINE_START, error);
  return started;
}

bool ClientChannel::LaunchEngineProcess(int* error) { return ShareEngineLaunch(error); }

bool ClientChannel::IsOurSocket(const MessageSocket* socket) const {
  if (socket == socket_.get()) return true;
  LOG(LS_ERROR) << this << ": Not our socket!";
  return false;
}

void ClientChannel::OnPortFileRead(MessageSocket*, bool ok) {
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  if (!ok) {
    LOG(LS_WARNING) << this
                    << ": Unreadable or no port file.  Could not initiate MurmelParlPlugin "
                       "connection";
  }
  SendConnectStatus(ConnectStep::PORT_FILE, ok ? 0 : -1);
}

void ClientChannel::OnSocketConnected(MessageSocket* socket) {
  if (!IsOurSocket(socket)) return;
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  LOG(LS_VERBOSE) << this << ": OnSocketConnected: ";
  const uint32_t run = run_;
  Enter(ChannelEvent::SOCKET_CONNECTED, "connected");
  given_up_ = false;
  ++link_;
  SendConnectStatus(ConnectStep::LINK_UP, 0);
  if (HasEnded(run)) return;
  LOG(LS_INFO) << this << ": Socket connection established";
  ScheduleOnlineCheck();
}

void ClientChannel::OnSocketAuthorized(MessageSocket* socket) {
  if (!IsOurSocket(socket)) return;
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  Enter(ChannelEvent::SOCKET_AUTHORIZED, "authorized");
  while (!pending_sends_.empty()) {
    const std::string text = std::move(pending_sends_.front());
    pending_sends_.pop_front();
    pending_bytes_ -= text.size();
    static_cast<void>(WriteToEngine(text));  // logs its failure
  }
  Deliver(kReadyText);
  LOG(LS_INFO) << this << ": AUTHORIZED; socket handshake complete";
}

void ClientChannel::OnSocketClosed(MessageSocket* socket, int reason) {
  if (!IsOurSocket(socket)) return;
  const std::shared_ptr<ClientChannel> self = shared_from_this();
  LOG(LS_VERBOSE) << this << ": OnSocketClosed: ";
  const uint32_t run = run_;
  ++link_;  // what this link has asked for is not for the next one
  SendConnectStatus(ConnectStep::LINK_DOWN, reason);
  if (HasEnded(run)) return;
  FollowClose(Enter(ChannelEvent::SOCKET_CLOSED, "closed"), reason);
}

void ClientChannel::FollowClose(const ChannelTransition& transition, int reason) {
  const uint32_t run = run_;
  switch (transition.state) {
    case ChannelState::NOT_CONNECTED:
      LOG(LS_WARNING) << this << ": Connection to MurmelParlPlugin failed, reason=" << reason;
      break;
    case ChannelState::CONNECTED:
      LOG(LS_WARNING) << this
                      << ": Connection lost while waiting for authorization reason=" << reason;
      break;
    case ChannelState::AUTHORIZED:
      LOG(LS_ERROR) << this
                    << ": Connection to MurmelParlPlugin lost while responding to getVersion.  "
                       "Give up.  reason="
                    << reason;
      break;
    case ChannelState::READY:
      LOG(LS_WARNING) << this << ": Connection to MurmelParlPlugin lost, reason=" << reason;
      break;
  }
  if (transition.text) Deliver(transition.text);
  if (transition.sequel == ChannelSequel::GIVE_UP) {
    LOG(LS_ERROR) << this << ": No more retries remaining. Giving up on starting quern.";
  }
  if (HasEnded(run)) return;
  if (transition.sequel == ChannelSequel::RECOVER) Recover();
  if (transition.sequel == ChannelSequel::RESTART) {
    RequestRestart("Possible quern crash; attempting to restart quern.");
  }
}

void ClientChannel::Recover() {
  if (!restart_tried_) {
    LogEngineProcesses();
    RequestRestart("Stale port file; attempting to restart quern.");
    return;
  }
  LOG(LS_WARNING) << this
                  << ": Read from a stale port file, but already tried to restart quern. "
                     "Attempting to reconnect.";
  WarnOfSilentLaunch();
  PostDelayed(kRetryDelayMs, kMsgConnect);
}

void ClientChannel::SetState(ChannelState state, const char* reason) {
  LOG(LS_SENSITIVE) << this << ": State " << ToNumber(state_) << " to " << ToNumber(state) << ": "
                    << reason;
  state_ = state;
}

const ChannelTransition& ClientChannel::Enter(ChannelEvent event, const char* reason) {
  const ChannelTransition& transition = FindTransition(state_, event);
  SetState(transition.next, reason);
  return transition;
}

// The channel goes on even when there is no memory to tell the page something.
void ClientChannel::SendConnectStatus(ConnectStep step, int error) try {
  Json::Value status(Json::objectValue);
  status["step"] = std::to_string(ToNumber(step));
  if (error != 0) status["error"] = error;
  Json::Value message(Json::arrayValue);
  message.append("f-connect");
  message.append(std::move(status));
  const std::string text = WriteJson(message);
  LOG(LS_INFO) << this << ": Connect Status: " << text;
  Deliver(text);
} catch (const std::exception& e) {
  LOG(LS_ERROR) << this << ": The page cannot be told of step " << ToNumber(step) << ": "
                << e.what();
}

void ClientChannel::Deliver(const std::string& text) try {
  if (delegate_) delegate_->MessageReceived(text);
} catch (const std::exception& e) {
  LOG(LS_ERROR) << this << ": A text did not reach the page: " << e.what();
}

}  // namespace mpbp
