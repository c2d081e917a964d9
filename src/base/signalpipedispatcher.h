#ifndef MPBP_BASE_SIGNALPIPEDISPATCHER_H_
#define MPBP_BASE_SIGNALPIPEDISPATCHER_H_

#include <map>

#include "base/iodispatcher.h"
#include "base/lifetoken.h"
#include "base/signalpipe.h"

namespace mpbp {

class PhysicalSocketServer;

// Serves one loop. Owned by its server, to which it adds itself.
class SignalPipeDispatcher : public IoDispatcher {
 public:
  explicit SignalPipeDispatcher(PhysicalSocketServer* server);
  ~SignalPipeDispatcher() override;

  void SetHandler(int signum, void (*handler)(int)) { handlers_[signum] = handler; }
  // True when no handler is left.
  [[nodiscard]] bool ClearHandler(int signum);

  uint32_t GetRequestedEvents() const override { return EVENT_READ; }
  void OnPreEvent(uint32_t flags) override;
  void OnEvent(uint32_t flags, int error) override;
  int GetDescriptor() const override { return SignalPipe::Instance().descriptor(); }
  bool IsDescriptorClosed() const override { return false; }

 private:
  PhysicalSocketServer* server_;
  bool added_;
  std::map<int, void (*)(int)> handlers_;
  LifeToken life_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_SIGNALPIPEDISPATCHER_H_
