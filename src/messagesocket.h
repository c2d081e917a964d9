// The framed, cookie-authorised link between the plug-in and the engine over loopback TCP. One
// class serves both ends: the client reads the port file, connects and proves that it knows the
// cookie; the server listens, writes the port file and answers cookies. How a frame is laid out is
// the derived class's.
//
//   client                                   server
//     | -- cookie (1), the cookie -------------> |
//     | <- cookie response (3), the cookie ----- |   authorized: both sides
//     | -- host description (4) ---------------> |
//     | <- data (2), in both directions -------> |
//
// On one thread, the one whose socket server owns the socket; signals are raised on it. A handler
// may do anything, delete this object included.
#ifndef MPBP_MESSAGESOCKET_H_
#define MPBP_MESSAGESOCKET_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/asyncsocket.h"
#include "base/bytebuffer.h"
#include "base/filestream.h"
#include "base/lifetoken.h"
#include "base/signal.h"

namespace mpbp {

// First field of every frame.
enum MessageType : uint16_t {
  MSG_COOKIE = 1,            // client to server: the client's cookie
  MSG_DATA = 2,              // both ways, once authorized
  MSG_COOKIE_RESPONSE = 3,   // server to client: the cookie if the client's matched, else empty
  MSG_HOST_DESCRIPTION = 4,  // client to server, once authorized
  MSG_BINARY = 5,            // reserved
};

using FrameList = std::vector<std::pair<uint16_t, std::string>>;

class MessageSocket : public SlotOwner {
 public:
  enum Role : uint32_t { ROLE_CLIENT = 1, ROLE_SERVER = 2 };
  enum State : int32_t { STATE_CLOSED = 0, STATE_CONNECTING = 1, STATE_CONNECTED = 2 };

  // Closes; see Close. A class that overrides DeletePortFile or OnClose calls Close in its own
  // destructor.
  virtual ~MessageSocket();

  // Client role: reads the port file and starts to connect. False when that was not possible, with
  // the socket's error, if there was one, in *error (which may be null).
  [[nodiscard]] bool Connect(int* error);
  // The same on a socket of the caller's; it is destroyed on failure.
  [[nodiscard]] bool Connect(std::unique_ptr<AsyncSocket> socket, int* error);

  // Server role: listens on 127.0.0.1, on a port that the system chooses, makes a fresh cookie and
  // writes the port file: 32 hex digits, of which the first 16 are the cookie. False on failure,
  // with an error line.
  [[nodiscard]] bool Listen();

  // Sends one data message, or queues it while connecting. False on a closed socket, when it cannot
  // be framed, or without memory for it; nothing of it is sent then.
  [[nodiscard]] bool Send(std::string_view data);

  // Ends the link, drops what is buffered and removes the port file that Listen wrote. The system's
  // socket is deleted later, through the current thread's queue. Raises nothing; closing twice is
  // harmless.
  void Close();

  // While held, an authorized link takes nothing more from the peer, whose writes stop when the
  // system's buffers are full; the end of the link is seen afterwards. Lifting it may raise signals
  // from inside the call. Holds for later connections too.
  void HoldInput(bool held);

  void set_port_file_path(std::string path) { port_file_path_ = std::move(path); }
  // What a client sends about itself; on the server what the client sent.
  void set_host_description(std::string text) { host_description_ = std::move(text); }
  const std::string& host_description() const { return host_description_; }
  int port() const { return port_; }  // 0 when unknown
  const std::string& cookie() const { return cookie_; }
  State state() const { return state_; }
  size_t unsent_bytes() const { return output_.Length(); }  // that the system has not taken yet
  bool authorized() const { return authorized_; }

  Signal<MessageSocket*, bool> SignalReadPortFile;  // after every attempt: whether it was read
  Signal<MessageSocket*> SignalConnected;
  Signal<MessageSocket*> SignalAuthorized;  // once a connection
  Signal<MessageSocket*, const std::string&> SignalMessage;
  Signal<MessageSocket*, int> SignalClosed;  // the socket error, 0 when the peer closed
  // Server role: a new connection, connected and not authorized. Who takes it moves it out.
  Signal<MessageSocket*, std::unique_ptr<MessageSocket>&> SignalAccepted;

 protected:
  explicit MessageSocket(uint32_t roles);
  // An accepted connection.
  MessageSocket(uint32_t roles, std::unique_ptr<AsyncSocket> socket, std::string cookie);

  virtual void HandleMessage(uint16_t type, const std::string& data);
  virtual bool WritePortFile(int port, const std::string& cookie);
  virtual bool ReadPortFile(int* port, std::string* cookie);
  virtual bool DeletePortFile();
  virtual void OnClose() {}
  // Appends one frame to `buffer`; false, with nothing appended, when this cannot be framed.
  // Nothing is appended either when there is no memory for it (std::bad_alloc).
  virtual bool Frame(uint16_t type, std::string_view data, ByteBuffer& buffer) = 0;
  // Takes every complete frame out of `buffer` and leaves the rest.
  virtual void Unframe(ByteBuffer& buffer, FrameList& frames) = 0;
  // A socket of the same class for an accepted connection.
  virtual std::unique_ptr<MessageSocket> CreateAcceptedSocket(std::unique_ptr<AsyncSocket> socket,
                                                              const std::string& cookie) = 0;

  bool SendFramed(uint16_t type, std::string_view data);

 private:
  // Sees, after a signal was raised, whether this object is gone or was closed by a handler.
  class Guard;

  void Attach(std::unique_ptr<AsyncSocket> socket);
  void Flush();
  // Each false, with an error line, when there is no memory; the link cannot go on then.
  bool TakeBytes(std::string_view bytes);
  bool TakeFrames(FrameList* frames);
  void DispatchMessages();
  // False when a handler threw. This object may be gone.
  bool TryToHandle(uint16_t type, const std::string& data);
  void OnCookie(const std::string& data);
  void OnCookieResponse(const std::string& data);
  void OnConnectEvent(AsyncSocket* socket);
  void OnReadEvent(AsyncSocket* socket);
  void OnWriteEvent(AsyncSocket* socket);
  void OnCloseEvent(AsyncSocket* socket, int error);
  void OnAcceptEvent(AsyncSocket* socket);

  const uint32_t roles_;
  State state_ = STATE_CLOSED;
  bool authorized_ = true;
  int port_ = 0;
  std::string cookie_;
  std::unique_ptr<AsyncSocket> socket_;
  ByteBuffer input_;
  ByteBuffer output_;
  bool dispatching_ = false;  // received messages are being handed out
  bool input_held_ = false;
  bool input_waits_ = false;  // the socket was readable while the input was held
  bool port_file_written_ = false;
  std::string port_file_path_;
  std::string host_description_;
  std::unique_ptr<FileStream> port_file_stream_;  // open for as long as the written file exists
  uint32_t close_count_ = 0;
  LifeToken life_;
};

}  // namespace mpbp

#endif  // MPBP_MESSAGESOCKET_H_
