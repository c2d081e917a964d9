#include "doctor/linkprobe.h"

#include "base/threadmanager.h"

namespace mpbp::doctor {
namespace {

// Of one wait, so that an interrupt is seen.
constexpr int kMaxWaitMs = 100;

}  // namespace

void LinkProbe::Socket::HandleMessage(uint16_t type, const std::string& data) {
  if (type == MSG_COOKIE_RESPONSE && data != cookie()) wrong_cookie_ = true;
  PluginMessageSocket::HandleMessage(type, data);
}

LinkProbe::LinkProbe() : thread_(&server_) {
  ThreadManager::Instance().SetCurrentThread(&thread_);
  socket_.SignalConnected.Connect(this, &LinkProbe::OnConnected);
  socket_.SignalAuthorized.Connect(this, &LinkProbe::OnAuthorized);
  socket_.SignalMessage.Connect(this, &LinkProbe::OnMessage);
  socket_.SignalClosed.Connect(this, &LinkProbe::OnClosed);
  socket_.set_host_description("{\"url\":\"\"}");
}

LinkProbe::~LinkProbe() {
  socket_.Close();
  thread_.ProcessMessages(0);  // deletes the system's socket
  ThreadManager::Instance().SetCurrentThread(nullptr);
}

Handshake LinkProbe::Shake(const std::string& port_file, int timeout_ms) {
  socket_.set_port_file_path(port_file);
  int error = 0;
  if (!socket_.Connect(&error)) return error == 0 ? Handshake::NO_PORT_FILE : Handshake::REFUSED;
  Serve([this] { return authorized_ || closed_ || socket_.wrong_cookie(); }, timeout_ms);
  if (authorized_) return Handshake::AUTHORIZED;
  if (socket_.wrong_cookie()) return Handshake::WRONG_COOKIE;
  if (closed_) return connected_ ? Handshake::CLOSED : Handshake::REFUSED;
  return Handshake::SILENT;
}

std::optional<LinkProbe::Text> LinkProbe::WaitForText(
    const std::function<bool(const std::string&)>& wanted, int timeout_ms) {
  std::optional<Text> found;
  Serve(
      [&] {
        while (!found && !texts_.empty()) {
          if (wanted(texts_.front().text)) found = std::move(texts_.front());
          texts_.pop_front();
        }
        return found || closed_;
      },
      timeout_ms);
  return found;
}

bool LinkProbe::Serve(const std::function<bool()>& done, int timeout_ms) {
  const Deadline deadline(timeout_ms);
  while (!done()) {
    const int left = deadline.LeftMs();
    if (left == 0 || !server_.Wait(std::min(left, kMaxWaitMs), true)) return false;
  }
  return true;
}

void LinkProbe::OnConnected(MessageSocket*) { connected_ = true; }

void LinkProbe::OnAuthorized(MessageSocket*) {
  authorized_ = true;
  server_.WakeUp();
}

void LinkProbe::OnMessage(MessageSocket*, const std::string& text) {
  texts_.push_back({text, std::chrono::steady_clock::now()});
  server_.WakeUp();
}

void LinkProbe::OnClosed(MessageSocket*, int) {
  closed_ = true;
  server_.WakeUp();
}

}  // namespace mpbp::doctor
