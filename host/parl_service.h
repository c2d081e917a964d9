// The private service: permission answers and remoting sessions, as the options say. Main thread.
#ifndef MPBP_HOST_PARL_SERVICE_H_
#define MPBP_HOST_PARL_SERVICE_H_

#include <cstdint>
#include <map>
#include <vector>

#include "abi/browser_abi.h"

namespace mpbp::host {

struct Core;

class ParlService {
 public:
  struct Request {
    PP_Instance instance;
    int32_t kind;
  };

  explicit ParlService(Core& core) : core_(core) {}

  int32_t RequestPermission(PP_Instance instance, int32_t kind, PP_CompletionCallback callback);
  int32_t StartRemoting(PP_Instance instance, PPB_Parl_RemotingEvent_Func event, void* user_data,
                        PP_CompletionCallback callback);
  int32_t StopRemoting(PP_Instance instance, PP_CompletionCallback callback);

  // False when the instance never started a session. A stopped session still hears of events: the
  // browser's may be on their way already.
  bool FireEvent(PP_Instance instance, int32_t event);
  void DropInstance(PP_Instance instance) { sessions_.erase(instance); }

  const std::vector<Request>& requests() const { return requests_; }

 private:
  struct Session {
    PPB_Parl_RemotingEvent_Func event;
    void* user_data;  // the module's, until its instance is gone
  };
  int32_t Complete(PP_Instance instance, PP_CompletionCallback callback, int32_t returned,
                   int32_t result);

  Core& core_;
  std::map<PP_Instance, Session> sessions_;
  std::vector<Request> requests_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_PARL_SERVICE_H_
