// The private service where the browser has none: every request fails as it does in a browser
// without the private interface.
#ifndef MPBP_CONNECTOR_NOPRIVATESERVICE_H_
#define MPBP_CONNECTOR_NOPRIVATESERVICE_H_

#include <deque>

#include "base/messagehandler.h"
#include "plugin/mpbp/common/privateservice.h"

namespace mpbp {

// On the connector's thread.
class NoPrivateService final : public PrivateService, public MessageHandler {
 public:
  int32_t RequestPermission(int32_t kind, Done done) override;
  int32_t StartRemoting(std::function<void(int32_t event)> on_event, Done done) override;
  int32_t StopRemoting(Done done) override;
  void End() override { refused_.clear(); }

 private:
  int32_t Refuse(Done done);
  void OnMessage(Message* message) override;

  std::deque<Done> refused_;
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_NOPRIVATESERVICE_H_
