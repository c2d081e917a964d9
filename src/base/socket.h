// Sockets as the rest of the system sees them.
#ifndef MPBP_BASE_SOCKET_H_
#define MPBP_BASE_SOCKET_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/socketaddress.h"

namespace mpbp {

class AsyncSocket;

enum SocketState : int32_t {
  SOCKET_CLOSED = 0,
  SOCKET_CONNECTING = 1,  // also a listening socket
  SOCKET_CONNECTED = 2,
};

enum SocketOption : int32_t {
  OPT_DONT_FRAGMENT = 0,
  OPT_RECV_BUFFER = 1,
  OPT_SEND_BUFFER = 2,
  OPT_NO_DELAY = 3,
  OPT_IPV6_ONLY = 4,  // not supported
  OPT_DSCP = 5,       // not supported
};

// Errors that say "later": EWOULDBLOCK and EINPROGRESS.
[[nodiscard]] bool IsBlockingError(int error);

// On one thread, that of its socket server. What returns int gives 0, or a byte count, on success
// and -1 on failure, with GetError saying why as an errno value.
class Socket {
 public:
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  virtual ~Socket() = default;

  virtual SocketAddress GetLocalAddress() const = 0;   // empty on failure
  virtual SocketAddress GetRemoteAddress() const = 0;  // empty on failure
  [[nodiscard]] virtual int Bind(const SocketAddress& address) = 0;
  // A host name is resolved first, in the background; a failure then raises the close event.
  [[nodiscard]] virtual int Connect(const SocketAddress& address) = 0;
  [[nodiscard]] virtual int Send(const void* data, size_t length) = 0;
  [[nodiscard]] virtual int SendTo(const void* data, size_t length,
                                   const SocketAddress& address) = 0;
  // At the end of the stream: -1 with EWOULDBLOCK; the close event follows.
  [[nodiscard]] virtual int Recv(void* buffer, size_t length) = 0;
  [[nodiscard]] virtual int RecvFrom(void* buffer, size_t length, SocketAddress* address) = 0;
  [[nodiscard]] virtual int Listen(int backlog) = 0;
  // Null when there is no connection to take. `address` may be null.
  [[nodiscard]] virtual std::unique_ptr<AsyncSocket> Accept(SocketAddress* address) = 0;
  virtual int Close() = 0;  // closing twice is harmless
  virtual int GetError() const = 0;
  virtual void SetError(int error) = 0;
  virtual SocketState GetState() const = 0;
  [[nodiscard]] virtual int EstimateMTU(uint16_t* mtu) = 0;
  [[nodiscard]] virtual int GetOption(SocketOption option, int* value) = 0;
  [[nodiscard]] virtual int SetOption(SocketOption option, int value) = 0;

 protected:
  Socket() = default;
};

}  // namespace mpbp

#endif  // MPBP_BASE_SOCKET_H_
