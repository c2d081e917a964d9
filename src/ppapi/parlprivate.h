// The private browser interface, in whichever version the browser has.
#ifndef MPBP_PPAPI_PARLPRIVATE_H_
#define MPBP_PPAPI_PARLPRIVATE_H_

#include "ppapi/resource.h"

namespace mpbp {

// Version 1.0 knows one kind of permission and no remoting. What the browser's version cannot do
// completes with PP_ERROR_NOINTERFACE through the callback, so that every caller has one path.
//
// Each returns PP_OK_COMPLETIONPENDING, or a code that says that the callback will not run.
class ParlPrivate {
 public:
  explicit ParlPrivate(PP_Instance instance);

  // Completes with 1 when the permission was granted.
  [[nodiscard]] int32_t RequestPermission(int32_t kind, const PP_CompletionCallback& callback);
  // `event` is called with `user_data` for each event of the session.
  [[nodiscard]] int32_t StartRemoting(PPB_Parl_RemotingEvent_Func event, void* user_data,
                                      const PP_CompletionCallback& callback);
  [[nodiscard]] int32_t StopRemoting(const PP_CompletionCallback& callback);

 private:
  const PP_Instance instance_;
  Resource resource_;  // of version 1.0
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_PARLPRIVATE_H_
