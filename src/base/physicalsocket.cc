#include "base/physicalsocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <optional>
#include <utility>

#include "base/asyncresolver.h"
#include "base/asyncsocketdispatcher.h"
#include "base/descriptors.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"

namespace mpbp {
namespace {

sockaddr* AsSockAddr(sockaddr_storage& storage) { return reinterpret_cast<sockaddr*>(&storage); }

// The system's level and name of an option; false for one that has none.
bool TranslateOption(SocketOption option, int* level, int* name) {
  switch (option) {
    case OPT_DONT_FRAGMENT:
      *level = IPPROTO_IP;
      *name = IP_MTU_DISCOVER;
      return true;
    case OPT_RECV_BUFFER:
      *level = SOL_SOCKET;
      *name = SO_RCVBUF;
      return true;
    case OPT_SEND_BUFFER:
      *level = SOL_SOCKET;
      *name = SO_SNDBUF;
      return true;
    case OPT_NO_DELAY:
      *level = IPPROTO_TCP;
      *name = TCP_NODELAY;
      return true;
    case OPT_DSCP:
      LOG(LS_WARNING) << "Socket::OPT_DSCP not supported.";
      return false;
    case OPT_IPV6_ONLY:
      return false;
  }
  return false;
}

// What getsockname or getpeername says; nothing when it fails.
std::optional<SocketAddress> AddressFrom(decltype(&getsockname) ask, int fd) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (ask(fd, AsSockAddr(storage), &length) != 0) return std::nullopt;
  return SocketAddress::FromSockAddr(storage);
}

// The system has no room for another descriptor; the connection waits.
bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

bool IsBlockingError(int error) { return error == EWOULDBLOCK || error == EINPROGRESS; }

PhysicalSocket::PhysicalSocket(PhysicalSocketServer* server, UniqueFd fd)
    : server_(server), fd_(std::move(fd)) {
  if (!fd_) return;
  enabled_events_ = EVENT_READ | EVENT_WRITE;
  int type = SOCK_STREAM;
  socklen_t length = sizeof(type);
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_TYPE, &type, &length) == 0) udp_ = type == SOCK_DGRAM;
}

PhysicalSocket::~PhysicalSocket() { PhysicalSocket::Close(); }

bool PhysicalSocket::Create(int family, int type) {
  Close();
  fd_ = UniqueFd(socket(family, type | SOCK_CLOEXEC, 0));
  if (fd_ && !IsWatchableDescriptor(fd_.get())) {
    fd_.Reset();
    errno = EMFILE;
  }
  UpdateLastError();
  udp_ = type == SOCK_DGRAM;
  if (fd_ && udp_) enabled_events_ = EVENT_READ | EVENT_WRITE;
  return static_cast<bool>(fd_);
}

SocketAddress PhysicalSocket::GetLocalAddress() const {
  const std::optional<SocketAddress> address = AddressFrom(&getsockname, fd_.get());
  if (!address) {
    LOG(LS_WARNING) << "GetLocalAddress: unable to get local addr, socket=" << fd_.get();
  }
  return address.value_or(SocketAddress());
}

SocketAddress PhysicalSocket::GetRemoteAddress() const {
  const std::optional<SocketAddress> address = AddressFrom(&getpeername, fd_.get());
  if (!address) {
    LOG(LS_WARNING) << "GetRemoteAddress: unable to get remote addr, socket=" << fd_.get();
  }
  return address.value_or(SocketAddress());
}

int PhysicalSocket::Bind(const SocketAddress& address) {
  sockaddr_storage storage;
  const socklen_t length = address.ToSockAddr(&storage);
  const int result = bind(fd_.get(), AsSockAddr(storage), length);
  UpdateLastError();
  return result;
}

int PhysicalSocket::Connect(const SocketAddress& address) {
  if (state_ != SOCKET_CLOSED) {
    SetError(EALREADY);
    return -1;
  }
  if (!address.IsUnresolved()) return DoConnect(address);
  LOG(LS_VERBOSE) << "Resolving addr in PhysicalSocket::Connect";
  // A descriptor that is there already connects to addresses of its own family only.
  int family = AF_UNSPEC;
  socklen_t length = sizeof(family);
  if (fd_ && getsockopt(fd_.get(), SOL_SOCKET, SO_DOMAIN, &family, &length) != 0)
    family = AF_UNSPEC;
  resolver_ = std::make_unique<AsyncResolver>(address, family);
  resolver_->SignalWorkDone.Connect(this, &PhysicalSocket::OnResolved);
  if (!resolver_->Start()) {
    resolver_.reset();
    SetError(ENOMEM);
    return -1;
  }
  state_ = SOCKET_CONNECTING;
  return 0;
}

void PhysicalSocket::OnResolved(SignalThread*) {
  // The resolver is on the stack: it goes when this returns.
  const std::unique_ptr<AsyncResolver> resolver = std::move(resolver_);
  state_ = SOCKET_CLOSED;
  if (resolver->failed()) {
    OnResolveFailed(EHOSTUNREACH);
  } else if (DoConnect(resolver->address()) < 0) {
    OnResolveFailed(GetError());
  }
}

int PhysicalSocket::DoConnect(const SocketAddress& address) {
  if (!fd_ && !Create(address.family(), SOCK_STREAM)) return -1;
  sockaddr_storage storage;
  const socklen_t length = address.ToSockAddr(&storage);
  const int result = connect(fd_.get(), AsSockAddr(storage), length);
  UpdateLastError();
  if (result == 0) {
    state_ = SOCKET_CONNECTED;
  } else if (IsBlockingError(GetError())) {
    state_ = SOCKET_CONNECTING;
    enabled_events_ |= EVENT_CONNECT;
  } else {
    return -1;
  }
  enabled_events_ |= EVENT_READ | EVENT_WRITE;
  return 0;
}

int PhysicalSocket::Send(const void* data, size_t length) {
  return AfterSend(send(fd_.get(), data, length, MSG_NOSIGNAL), length);
}

int PhysicalSocket::SendTo(const void* data, size_t length, const SocketAddress& address) {
  sockaddr_storage storage;
  const socklen_t size = address.ToSockAddr(&storage);
  return AfterSend(sendto(fd_.get(), data, length, MSG_NOSIGNAL, AsSockAddr(storage), size),
                   length);
}

int PhysicalSocket::AfterSend(ssize_t sent, size_t length) {
  UpdateLastError();
  const bool blocked = sent < 0 && IsBlockingError(GetError());
  // A short count means a full buffer too: without the event, nobody would send the rest.
  const bool short_count = sent >= 0 && static_cast<size_t>(sent) < length;
  if (blocked || short_count) enabled_events_ |= EVENT_WRITE;
  return static_cast<int>(sent);
}

int PhysicalSocket::Recv(void* buffer, size_t length) {
  const ssize_t received = recv(fd_.get(), buffer, length, 0);
  if (received == 0 && length != 0) {
    // The loop sees the end of the stream again and raises the close event for it.
    LOG(LS_WARNING) << "EOF from socket; deferring close event";
    enabled_events_ |= EVENT_READ;
    SetError(EWOULDBLOCK);
    return -1;
  }
  AfterReceive("Recv", received);
  return static_cast<int>(received);
}

int PhysicalSocket::RecvFrom(void* buffer, size_t length, SocketAddress* address) {
  sockaddr_storage storage{};
  socklen_t size = sizeof(storage);
  const ssize_t received = recvfrom(fd_.get(), buffer, length, 0, AsSockAddr(storage), &size);
  const int error = errno;
  if (received >= 0 && address) *address = SocketAddress::FromSockAddr(storage);
  errno = error;
  AfterReceive("RecvFrom", received);
  return static_cast<int>(received);
}

void PhysicalSocket::AfterReceive(const char* operation, ssize_t received) {
  UpdateLastError();
  const bool failed = received < 0 && !IsBlockingError(GetError());
  if (!failed || udp_) enabled_events_ |= EVENT_READ;
  if (failed) LOG(LS_VERBOSE) << operation << ": Error = " << GetError();
}

int PhysicalSocket::Listen(int backlog) {
  const int result = listen(fd_.get(), backlog);
  UpdateLastError();
  if (result == 0) {
    enabled_events_ |= EVENT_ACCEPT;
    state_ = SOCKET_CONNECTING;
  }
  return result;
}

std::unique_ptr<AsyncSocket> PhysicalSocket::Accept(SocketAddress* address) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  UniqueFd fd(accept4(fd_.get(), AsSockAddr(storage), &length, SOCK_CLOEXEC));
  UpdateLastError();
  // Armed again in any case: a connection that could not be taken, or one that was withdrawn, must
  // not leave the listener deaf.
  enabled_events_ |= EVENT_ACCEPT;
  if (!fd) {
    if (IsShortage(GetError())) server_->PauseAccepting(GetError());
    return nullptr;
  }
  if (address) *address = SocketAddress::FromSockAddr(storage);
  return server_->WrapSocket(fd.Release());
}

int PhysicalSocket::Close() {
  resolver_.reset();
  state_ = SOCKET_CLOSED;  // a look-up has no descriptor yet
  enabled_events_ = 0;
  if (!fd_) return 0;
  const int result = fd_.Close();
  UpdateLastError();
  return result;
}

int PhysicalSocket::GetError() const {
  CritScope scope(error_crit_);
  return error_;
}

void PhysicalSocket::SetError(int error) {
  CritScope scope(error_crit_);
  error_ = error;
}

void PhysicalSocket::UpdateLastError() { PhysicalSocket::SetError(errno); }

int PhysicalSocket::EstimateMTU(uint16_t* mtu) {
  if (GetRemoteAddress().IsAny()) {
    SetError(ENOTCONN);
    return -1;
  }
  int value = 0;
  socklen_t length = sizeof(value);
  const int result = getsockopt(fd_.get(), IPPROTO_IP, IP_MTU, &value, &length);
  if (result != 0) {
    UpdateLastError();
    return result;
  }
  *mtu = static_cast<uint16_t>(value);
  return 0;
}

int PhysicalSocket::GetOption(SocketOption option, int* value) {
  int level = 0;
  int name = 0;
  if (!TranslateOption(option, &level, &name)) return -1;
  socklen_t length = sizeof(*value);
  const int result = getsockopt(fd_.get(), level, name, value, &length);
  if (result != 0) {
    UpdateLastError();
  } else if (option == OPT_DONT_FRAGMENT) {
    *value = *value != IP_PMTUDISC_DONT ? 1 : 0;
  }
  return result;
}

int PhysicalSocket::SetOption(SocketOption option, int value) {
  int level = 0;
  int name = 0;
  if (!TranslateOption(option, &level, &name)) return -1;
  if (option == OPT_DONT_FRAGMENT) value = value ? IP_PMTUDISC_DO : IP_PMTUDISC_DONT;
  const int result = setsockopt(fd_.get(), level, name, &value, sizeof(value));
  if (result != 0) UpdateLastError();
  return result;
}

}  // namespace mpbp
