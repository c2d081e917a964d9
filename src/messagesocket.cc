#include "messagesocket.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <exception>
#include <new>

#include "base/logging.h"
#include "base/thread.h"
#include "portfileutils.h"

namespace mpbp {
namespace {

constexpr size_t kReadSize = 4096;  // most bytes taken per read event
constexpr int kMaxAccepts = 64;     // per accept event, so that a flood leaves room for others
constexpr int kMaxPort = 65535;
constexpr char kHexDigits[] = "0123456789abcdef";

// 32 hex digits, so that a log that shows the cookie stays a text. Readers take the first 16 of
// them, which are 64 random bits: they can only be guessed over a connection.
bool MakeCookie(std::string* cookie) {
  std::array<uint8_t, kPortFileCookieSize> bytes;
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return false;
  cookie->clear();
  for (const uint8_t byte : bytes) {
    *cookie += kHexDigits[byte >> 4];
    *cookie += kHexDigits[byte & 0xf];
  }
  return true;
}

}  // namespace

class MessageSocket::Guard {
 public:
  explicit Guard(MessageSocket& socket)
      : socket_(socket), alive_(socket.life_.watch()), close_count_(socket.close_count_) {}
  bool alive() const { return static_cast<bool>(alive_); }
  bool open() const { return alive_ && socket_.close_count_ == close_count_; }

 private:
  const MessageSocket& socket_;
  const LifeToken::Watch alive_;
  const uint32_t close_count_;
};

MessageSocket::MessageSocket(uint32_t roles) : roles_(roles) {}

MessageSocket::MessageSocket(uint32_t roles, std::unique_ptr<AsyncSocket> socket,
                             std::string cookie)
    : roles_(roles), state_(STATE_CONNECTED), authorized_(false), cookie_(std::move(cookie)) {
  Attach(std::move(socket));
}

MessageSocket::~MessageSocket() { MessageSocket::Close(); }

void MessageSocket::Attach(std::unique_ptr<AsyncSocket> socket) {
  socket_ = std::move(socket);
  socket_->SignalReadEvent.Connect(this, &MessageSocket::OnReadEvent);
  socket_->SignalWriteEvent.Connect(this, &MessageSocket::OnWriteEvent);
  socket_->SignalConnectEvent.Connect(this, &MessageSocket::OnConnectEvent);
  socket_->SignalCloseEvent.Connect(this, &MessageSocket::OnCloseEvent);
  // A text that follows one that is not answered would wait for the other end's acknowledgement.
  // Where it cannot be set, texts are slow and nothing else.
  static_cast<void>(socket_->SetOption(OPT_NO_DELAY, 1));
}

bool MessageSocket::Connect(int* error) {
  if (!(roles_ & ROLE_CLIENT)) {
    LOG(LS_ERROR) << this << ": Requested Connect on non-client socket.";
    return false;
  }
  if (state_ != STATE_CLOSED || socket_) return false;
  Thread* const thread = Thread::Current();
  errno = 0;
  auto socket = thread ? thread->socket_server()->CreateAsyncSocket(AF_INET, SOCK_STREAM) : nullptr;
  if (!socket) {
    if (error) *error = errno;
    LOG(LS_ERROR) << this << ": Failed to create client socket";
    return false;
  }
  return Connect(std::move(socket), error);
}

bool MessageSocket::Connect(std::unique_ptr<AsyncSocket> socket, int* error) {
  if (!(roles_ & ROLE_CLIENT)) {
    LOG(LS_ERROR) << this << ": Requested Connect on non-client socket.";
    return false;
  }
  int port = 0;
  std::string cookie;
  const bool read = ReadPortFile(&port, &cookie);
  if (!read) {
    port = 0;
    cookie.clear();
  }
  port_ = port;
  cookie_ = cookie;
  const Guard guard(*this);
  SignalReadPortFile(this, read);
  if (!read || !guard.open()) return false;
  if (state_ != STATE_CLOSED || socket_) return false;

  int result = -1;
  if (port_ > 0 && port_ <= kMaxPort) {
    result = socket->Connect(SocketAddress::Loopback(static_cast<uint16_t>(port_)));
  } else {
    socket->SetError(EINVAL);
  }
  if (result < 0 && !IsBlockingError(socket->GetError())) {
    LOG(LS_ERROR) << this
                  << ": Failed to initiate connect from client socket, err=" << socket->GetError();
    if (error) *error = socket->GetError();
    return false;
  }
  authorized_ = false;
  state_ = STATE_CONNECTING;
  Attach(std::move(socket));
  LOG(LS_INFO) << this << ":  sending cookie " << cookie_;
  return SendFramed(MSG_COOKIE, cookie_);
}

bool MessageSocket::Listen() {
  if (!(roles_ & ROLE_SERVER)) {
    LOG(LS_ERROR) << this << ": Requested Listen on non-server socket.";
    return false;
  }
  if (state_ != STATE_CLOSED || socket_) return false;
  Thread* const thread = Thread::Current();
  auto socket = thread ? thread->socket_server()->CreateAsyncSocket(AF_INET, SOCK_STREAM) : nullptr;
  std::string cookie;
  if (!socket || !MakeCookie(&cookie)) {
    LOG(LS_ERROR) << this << ": Failed to create server socket";
    return false;
  }
  if (socket->Bind(SocketAddress::Loopback(0)) < 0) {
    LOG(LS_ERROR) << this << ": Failed to bind server socket, err=" << socket->GetError();
    return false;
  }
  if (socket->Listen(SOMAXCONN) < 0) {
    LOG(LS_ERROR) << this << ": Failed to listen on server socket, err=" << socket->GetError();
    return false;
  }
  const int port = socket->GetLocalAddress().port();
  LOG(LS_INFO) << this << ": MessageSocket listening, port=" << port;
  if (!WritePortFile(port, cookie)) return false;
  port_file_written_ = true;
  port_ = port;
  cookie_ = cookie.substr(0, kPortFileCookieSize);
  socket_ = std::move(socket);
  socket_->SignalReadEvent.Connect(this, &MessageSocket::OnAcceptEvent);
  return true;
}

bool MessageSocket::Send(std::string_view data) {
  try {
    return state_ != STATE_CLOSED && socket_ && SendFramed(MSG_DATA, data);
  } catch (const std::bad_alloc&) {
    return false;  // nothing of it was queued
  }
}

bool MessageSocket::SendFramed(uint16_t type, std::string_view data) {
  // Into the output at once: a large text is not copied more often than it must.
  if (!Frame(type, data, output_)) {
    LOG(LS_ERROR) << this << ": Framing message failed. Message: " << data;
    return false;
  }
  if (state_ == STATE_CONNECTED) Flush();
  return true;
}

void MessageSocket::Flush() {
  if (!socket_ || output_.Length() == 0) return;
  const int sent = socket_->Send(output_.Data(), output_.Length());
  if (sent > 0) {
    static_cast<void>(output_.Consume(static_cast<size_t>(sent)));
    output_.ReleaseIfEmpty();
  } else if (sent < 0 && !IsBlockingError(socket_->GetError())) {
    LOG(LS_ERROR) << this << ": Failed to send, err=" << socket_->GetError();
  }
}

// NOLINTBEGIN(clang-analyzer-optin.cplusplus.VirtualCall): a class that overrides what is called
// here closes in its own destructor.
void MessageSocket::Close() {
  ++close_count_;
  if (port_file_written_) {
    DeletePortFile();  // logs its failure; there is nothing more to do about it
    port_file_written_ = false;
  }
  output_.Clear();
  input_.Clear();
  input_waits_ = false;
  OnClose();
  if (socket_) {
    socket_->Close();
    socket_->SignalReadEvent.Disconnect(this);
    socket_->SignalWriteEvent.Disconnect(this);
    socket_->SignalConnectEvent.Disconnect(this);
    socket_->SignalCloseEvent.Disconnect(this);
    // It may be inside its own event handler.
    std::unique_ptr<AsyncSocket> socket = std::move(socket_);
    if (Thread* const thread = Thread::Current()) thread->Dispose(std::move(socket));
  }
  cookie_.clear();
  state_ = STATE_CLOSED;
  authorized_ = false;
}
// NOLINTEND(clang-analyzer-optin.cplusplus.VirtualCall)

void MessageSocket::HandleMessage(uint16_t type, const std::string& data) {
  switch (type) {
    case MSG_COOKIE:
      OnCookie(data);
      break;
    case MSG_COOKIE_RESPONSE:
      OnCookieResponse(data);
      break;
    case MSG_HOST_DESCRIPTION:
      if (authorized_) {
        host_description_ = data;
      } else {
        LOG(LS_ERROR) << this << ": Unauthorized host_description message received, data= " << data;
      }
      break;
    case MSG_DATA:
      if (authorized_) {
        SignalMessage(this, data);
      } else {
        LOG(LS_ERROR) << this << ": Unauthorized message received, data=" << data;
      }
      break;
    default:
      LOG(LS_ERROR) << this << ": Unknown message received, type=" << type;
  }
}

void MessageSocket::OnCookie(const std::string& data) {
  if (data != cookie_) {
    SendFramed(MSG_COOKIE_RESPONSE, "");
    return;
  }
  SendFramed(MSG_COOKIE_RESPONSE, cookie_);
  if (authorized_) return;
  authorized_ = true;
  SignalAuthorized(this);
}

void MessageSocket::OnCookieResponse(const std::string& data) {
  if (authorized_ || data != cookie_) {
    LOG(LS_ERROR) << this << ": Bad cookie response received; ignored!" << (authorized_ ? 1 : 0)
                  << " | " << data << " | " << cookie_;
    return;
  }
  LOG(LS_INFO) << this << ": Got cookie response, socket is authorized";
  authorized_ = true;
  SendFramed(MSG_HOST_DESCRIPTION, host_description_);
  SignalAuthorized(this);
}

void MessageSocket::OnConnectEvent(AsyncSocket* socket) {
  if (socket->GetLocalAddress().port() == port_) {
    // The port of an engine that is gone has become our own, and the system has connected the
    // socket to itself. Both ends have the loopback address.
    LOG(LS_ERROR) << this << ": Connected to itself, port=" << port_;
    OnCloseEvent(socket, ECONNREFUSED);
    return;
  }
  state_ = STATE_CONNECTED;
  SignalConnected(this);
}

void MessageSocket::OnWriteEvent(AsyncSocket*) {
  if (state_ == STATE_CONNECTED) Flush();
}

void MessageSocket::HoldInput(bool held) {
  input_held_ = held;
  // The socket raises no further event until it is read.
  if (!held && input_waits_ && socket_) OnReadEvent(socket_.get());
}

void MessageSocket::OnReadEvent(AsyncSocket* socket) {
  input_waits_ = input_held_ && authorized_;
  if (input_waits_) return;
  char bytes[kReadSize];
  const int count = socket->Recv(bytes, sizeof(bytes));
  if (count < 0 && !IsBlockingError(socket->GetError())) {
    const int error = socket->GetError();
    LOG(LS_ERROR) << this << ": Failed to recv, err=" << error;
    // The error is taken and the socket will raise no further event: this is its end.
    OnCloseEvent(socket, error);
    return;
  }
  if (count > 0 && !TakeBytes({bytes, static_cast<size_t>(count)})) {
    OnCloseEvent(socket, ENOMEM);
    return;
  }
  if (!dispatching_) DispatchMessages();
}

bool MessageSocket::TakeBytes(std::string_view bytes) {
  try {
    input_.WriteBytes(bytes);
    return true;
  } catch (const std::bad_alloc&) {
    LOG(LS_ERROR) << this << ": No memory for what was received.";
    return false;
  }
}

bool MessageSocket::TakeFrames(FrameList* frames) {
  try {
    Unframe(input_, *frames);
    input_.ReleaseIfEmpty();
    return true;
  } catch (const std::bad_alloc&) {
    LOG(LS_ERROR) << this << ": No memory for what was received.";
    return false;
  }
}

void MessageSocket::DispatchMessages() {
  FrameList frames;
  const bool taken = TakeFrames(&frames);
  if (taken && frames.empty()) return;
  const Guard guard(*this);
  bool intact = taken;
  dispatching_ = true;
  for (const auto& [type, data] : frames) {
    // Half a handshake is none; a data message is its owner's affair, and the next one is whole.
    if (!TryToHandle(type, data) && type != MSG_DATA) intact = false;
    if (!guard.open()) break;  // what came before the end of the link is not for the next one
  }
  if (guard.alive()) dispatching_ = false;
  if (guard.open() && !intact) OnCloseEvent(socket_.get(), ENOMEM);
}

bool MessageSocket::TryToHandle(uint16_t type, const std::string& data) {
  const LifeToken::Watch alive = life_.watch();
  try {
    HandleMessage(type, data);
    return true;
  } catch (const std::exception& e) {
    if (alive) LOG(LS_ERROR) << this << ": A message could not be handled: " << e.what();
    return false;
  }
}

void MessageSocket::OnCloseEvent(AsyncSocket*, int error) {
  state_ = STATE_CLOSED;
  const Guard guard(*this);
  SignalClosed(this, error);
  if (guard.open()) Close();
}

void MessageSocket::OnAcceptEvent(AsyncSocket* socket) {
  const Guard guard(*this);
  for (int i = 0; i < kMaxAccepts && guard.open(); ++i) {
    std::unique_ptr<AsyncSocket> connection = socket->Accept(nullptr);
    // None is left, or this one failed; the next event brings what waits behind it.
    if (!connection) return;
    std::unique_ptr<MessageSocket> accepted = CreateAcceptedSocket(std::move(connection), cookie_);
    SignalAccepted(this, accepted);
  }
}

bool MessageSocket::WritePortFile(int port, const std::string& cookie) {
  port_file_stream_ = mpbp::WritePortFile(port_file_path_, port, cookie);
  return port_file_stream_ != nullptr;
}

bool MessageSocket::ReadPortFile(int* port, std::string* cookie) {
  return mpbp::ReadPortFile(port_file_path_, port, cookie);
}

bool MessageSocket::DeletePortFile() {
  port_file_stream_.reset();
  return mpbp::DeletePortFile(port_file_path_);
}

}  // namespace mpbp
