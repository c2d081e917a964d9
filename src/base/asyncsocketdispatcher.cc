#include "base/asyncsocketdispatcher.h"

#include "base/descriptors.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"

namespace mpbp {

AsyncSocketDispatcher::AsyncSocketDispatcher(PhysicalSocketServer* server)
    : PhysicalSocket(server) {}

AsyncSocketDispatcher::AsyncSocketDispatcher(PhysicalSocketServer* server, UniqueFd fd)
    : PhysicalSocket(server, std::move(fd)) {
  state_ = fd_ ? SOCKET_CONNECTED : SOCKET_CLOSED;
}

AsyncSocketDispatcher::~AsyncSocketDispatcher() { AsyncSocketDispatcher::Close(); }

bool AsyncSocketDispatcher::Initialize() {
  int error = EMFILE;  // select cannot watch it
  watched_ = SetNonBlocking(fd_.get(), &error) && server_->Add(this);
  if (watched_) return true;
  Close();
  SetError(error);
  errno = error;
  return false;
}

bool AsyncSocketDispatcher::Create(int family, int type) {
  return PhysicalSocket::Create(family, type) && Initialize();
}

int AsyncSocketDispatcher::Close() {
  ++close_count_;
  if (watched_) {
    watched_ = false;
    server_->Remove(this);  // while the descriptor is still ours
  }
  return PhysicalSocket::Close();
}

bool AsyncSocketDispatcher::IsDescriptorClosed() const {
  char byte = 0;
  const ssize_t result = recv(fd_.get(), &byte, 1, MSG_PEEK);
  if (result >= 0) return result == 0;
  if (errno == EBADF || errno == ECONNRESET) return true;
  LOG_ERR(LS_WARNING) << "Assuming benign blocking error";
  return false;
}

void AsyncSocketDispatcher::OnPreEvent(uint32_t flags) {
  if (flags & EVENT_CONNECT) state_ = SOCKET_CONNECTED;
  if (flags & EVENT_CLOSE) state_ = SOCKET_CLOSED;
}

bool AsyncSocketDispatcher::Raise(uint8_t event, const Signal<AsyncSocket*>& signal) {
  enabled_events_ &= static_cast<uint8_t>(~event);
  const LifeToken::Watch alive = life_.watch();
  const uint32_t closes = close_count_;
  signal(this);
  return alive && close_count_ == closes;
}

void AsyncSocketDispatcher::OnEvent(uint32_t flags, int error) {
  if ((flags & EVENT_CONNECT) && !Raise(EVENT_CONNECT, SignalConnectEvent)) return;
  if ((flags & EVENT_ACCEPT) && !Raise(EVENT_ACCEPT, SignalReadEvent)) return;
  if ((flags & EVENT_READ) && !Raise(EVENT_READ, SignalReadEvent)) return;
  if ((flags & EVENT_WRITE) && !Raise(EVENT_WRITE, SignalWriteEvent)) return;
  if (flags & EVENT_CLOSE) {
    enabled_events_ = 0;
    SignalCloseEvent(this, error);
  }
}

void AsyncSocketDispatcher::OnResolveFailed(int error) {
  SetError(error);
  SignalCloseEvent(this, error);
}

}  // namespace mpbp
