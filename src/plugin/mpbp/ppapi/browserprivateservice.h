// The private browser interface as the channel's side knows it.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_BROWSERPRIVATESERVICE_H_
#define MPBP_PLUGIN_MPBP_PPAPI_BROWSERPRIVATESERVICE_H_

#include "plugin/mpbp/common/privateservice.h"
#include "ppapi/callbacks.h"
#include "ppapi/parlprivate.h"

namespace mpbp {

class BrowserPrivateService final : public PrivateService {
 public:
  explicit BrowserPrivateService(PP_Instance instance);

  int32_t RequestPermission(int32_t kind, Done done) override;
  int32_t StartRemoting(std::function<void(int32_t event)> on_event, Done done) override;
  int32_t StopRemoting(Done done) override;
  void End() override { callbacks_.CancelAll(); }

 private:
  // The code for a request that returned `result`.
  int32_t Result(int32_t result, const PP_CompletionCallback& callback);

  ParlPrivate browser_;
  std::function<void(int32_t event)> on_event_;
  CallbackFactory callbacks_;
  PP_CompletionCallback event_callback_;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_BROWSERPRIVATESERVICE_H_
