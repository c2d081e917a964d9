#ifndef MPBP_BASE_PHYSICALSOCKET_H_
#define MPBP_BASE_PHYSICALSOCKET_H_

#include <cstdint>
#include <memory>

#include "base/asyncsocket.h"
#include "base/criticalsection.h"
#include "base/uniquefd.h"

namespace mpbp {

class AsyncResolver;
class PhysicalSocketServer;
class SignalThread;

// A BSD socket. Events are one-shot: what the socket wants to hear of next is armed by its
// operations.
class PhysicalSocket : public AsyncSocket, public SlotOwner {
 public:
  // `server` is borrowed for life; the socket goes first.
  explicit PhysicalSocket(PhysicalSocketServer* server, UniqueFd fd = UniqueFd());
  ~PhysicalSocket() override;

  SocketAddress GetLocalAddress() const override;
  SocketAddress GetRemoteAddress() const override;
  [[nodiscard]] int Bind(const SocketAddress& address) override;
  [[nodiscard]] int Connect(const SocketAddress& address) override;
  [[nodiscard]] int Send(const void* data, size_t length) override;
  [[nodiscard]] int SendTo(const void* data, size_t length, const SocketAddress& address) override;
  [[nodiscard]] int Recv(void* buffer, size_t length) override;
  [[nodiscard]] int RecvFrom(void* buffer, size_t length, SocketAddress* address) override;
  [[nodiscard]] int Listen(int backlog) override;
  [[nodiscard]] std::unique_ptr<AsyncSocket> Accept(SocketAddress* address) override;
  int Close() override;
  int GetError() const override;
  void SetError(int error) override;
  SocketState GetState() const override { return state_; }
  [[nodiscard]] int EstimateMTU(uint16_t* mtu) override;
  [[nodiscard]] int GetOption(SocketOption option, int* value) override;
  [[nodiscard]] int SetOption(SocketOption option, int value) override;

  // Makes the descriptor, close-on-exec. False, with errno set, when there is none or it cannot be
  // watched.
  [[nodiscard]] virtual bool Create(int family, int type);

 protected:
  [[nodiscard]] int DoConnect(const SocketAddress& address);
  // Called when a host name could not be resolved; tells the owner.
  virtual void OnResolveFailed(int error) { SetError(error); }

  PhysicalSocketServer* server_;
  UniqueFd fd_;
  uint8_t enabled_events_ = 0;
  bool udp_ = false;
  SocketState state_ = SOCKET_CLOSED;

 private:
  // Keeps errno as the last error.
  void UpdateLastError();
  // What Recv and RecvFrom end with: keeps the error and arms the next read.
  void AfterReceive(const char* operation, ssize_t received);
  int AfterSend(ssize_t sent, size_t length);
  void OnResolved(SignalThread* resolver);

  mutable CriticalSection error_crit_;
  int error_ MPBP_GUARDED_BY(error_crit_) = 0;
  std::unique_ptr<AsyncResolver> resolver_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_PHYSICALSOCKET_H_
