// BSD sockets, and their asynchronous form on a PhysicalSocketServer.
#ifndef MPBP_BASE_ASYNCSOCKETDISPATCHER_H_
#define MPBP_BASE_ASYNCSOCKETDISPATCHER_H_

#include <memory>

#include "base/criticalsection.h"
#include "base/iodispatcher.h"
#include "base/lifetoken.h"
#include "base/socket.h"
#include "base/uniquefd.h"

namespace mpbp {

class AsyncResolver;
class PhysicalSocketServer;
class SignalThread;

// The socket itself. Events are one-shot: what the socket wants to hear of next is armed by its
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
  int Send(const void* data, size_t length) override;
  int SendTo(const void* data, size_t length, const SocketAddress& address) override;
  int Recv(void* buffer, size_t length) override;
  int RecvFrom(void* buffer, size_t length, SocketAddress* address) override;
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
  // Called when a host name could not be resolved: the owner is told.
  virtual void OnResolveFailed(int error) { SetError(error); }

  PhysicalSocketServer* server_;
  UniqueFd fd_;
  uint8_t enabled_events_ = 0;
  bool udp_ = false;
  SocketState state_ = SOCKET_CLOSED;

 private:
  // Keeps errno as the last error.
  void UpdateLastError();
  // The rule for received, for Recv and RecvFrom: keeps the error and arms the next read.
  void AfterReceive(const char* operation, ssize_t received);
  int AfterSend(ssize_t sent, size_t length);
  void OnResolved(SignalThread* resolver);

  mutable CriticalSection error_crit_;
  int error_ MPBP_GUARDED_BY(error_crit_) = 0;
  std::unique_ptr<AsyncResolver> resolver_;
};

// A non-blocking socket that its server watches.
class AsyncSocketDispatcher : public PhysicalSocket, public IoDispatcher {
 public:
  explicit AsyncSocketDispatcher(PhysicalSocketServer* server);
  // Wraps an accepted descriptor; Initialize then makes it non-blocking and has it watched.
  AsyncSocketDispatcher(PhysicalSocketServer* server, UniqueFd fd);
  ~AsyncSocketDispatcher() override;

  // False, with errno set, when the descriptor cannot be watched or set up; it is closed then.
  [[nodiscard]] bool Initialize();

  [[nodiscard]] bool Create(int family, int type) override;
  int Close() override;

  uint32_t GetRequestedEvents() const override { return enabled_events_; }
  void OnPreEvent(uint32_t flags) override;
  // Connect, accept, read, write, close, in this order; stops when a handler closes or deletes the
  // socket.
  void OnEvent(uint32_t flags, int error) override;
  int GetDescriptor() const override { return fd_.get(); }
  bool IsDescriptorClosed() const override;

 private:
  void OnResolveFailed(int error) override;
  // Disarms `event` and raises `signal`; false when a handler closed the socket, even if it is open
  // again, or deleted it.
  [[nodiscard]] bool Raise(uint8_t event, const Signal<AsyncSocket*>& signal);

  bool watched_ = false;
  uint32_t close_count_ = 0;  // what a round has found ready is void once this changes
  LifeToken life_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_ASYNCSOCKETDISPATCHER_H_
