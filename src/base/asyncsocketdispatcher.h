#ifndef MPBP_BASE_ASYNCSOCKETDISPATCHER_H_
#define MPBP_BASE_ASYNCSOCKETDISPATCHER_H_

#include "base/iodispatcher.h"
#include "base/lifetoken.h"
#include "base/physicalsocket.h"

namespace mpbp {

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
