// What a message queue needs of the loop under it: waiting, waking, and making sockets.
#ifndef MPBP_BASE_SOCKETSERVER_H_
#define MPBP_BASE_SOCKETSERVER_H_

#include <memory>

namespace mpbp {

class AsyncSocket;
class MessageQueue;
class Socket;

inline constexpr int kForever = -1;

class SocketServer {
 public:
  SocketServer(const SocketServer&) = delete;
  SocketServer& operator=(const SocketServer&) = delete;
  virtual ~SocketServer() = default;

  // `type` is SOCK_STREAM or SOCK_DGRAM; the family is AF_INET where none is given. Null, with
  // errno set, when the system makes no socket or its descriptor cannot be watched. Destroy sockets
  // before their server.
  [[nodiscard]] virtual std::unique_ptr<Socket> CreateSocket(int type) = 0;
  [[nodiscard]] virtual std::unique_ptr<Socket> CreateSocket(int family, int type) = 0;
  [[nodiscard]] virtual std::unique_ptr<AsyncSocket> CreateAsyncSocket(int type) = 0;
  [[nodiscard]] virtual std::unique_ptr<AsyncSocket> CreateAsyncSocket(int family, int type) = 0;

  virtual void SetMessageQueue(MessageQueue* queue) = 0;

  // Waits up to timeout_ms (kForever: until woken), serving sockets meanwhile when process_io is
  // true. False when waiting failed. On the owning thread only.
  [[nodiscard]] virtual bool Wait(int timeout_ms, bool process_io) = 0;
  // Ends the current or the next Wait. From any thread.
  virtual void WakeUp() = 0;

  // A descriptor that is readable while a Wait would find something to do, as far as was known at
  // the last UpdateReadyDescriptor; for another thread to wait for. It stays the server's. Negative
  // when there is none. Both on the owning thread only.
  virtual int ReadyDescriptor() { return -1; }
  virtual void UpdateReadyDescriptor() {}

 protected:
  SocketServer() = default;
};

}  // namespace mpbp

#endif  // MPBP_BASE_SOCKETSERVER_H_
