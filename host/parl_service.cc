#include "host/parl_service.h"

#include "host/core.h"

namespace mpbp::host {

int32_t ParlService::Complete(PP_Instance instance, PP_CompletionCallback callback,
                              int32_t returned, int32_t result) {
  if (returned != PP_OK_COMPLETIONPENDING) return returned;
  if (callback.func == nullptr) {
    core_.misuse.Add("private service: no completion callback");
    return PP_ERROR_BADARGUMENT;
  }
  if (core_.options.complete_inside) {
    callback.func(callback.user_data, result);
    return PP_OK_COMPLETIONPENDING;
  }
  core_.loop.Post(core_.options.parl.delay_ms, [this, instance, callback, result] {
    const bool alive = core_.instances.contains(instance);
    callback.func(callback.user_data, alive ? result : PP_ERROR_ABORTED);
  });
  return PP_OK_COMPLETIONPENDING;
}

int32_t ParlService::RequestPermission(PP_Instance instance, int32_t kind,
                                       PP_CompletionCallback callback) {
  requests_.push_back({instance, kind});
  const ParlOptions& parl = core_.options.parl;
  return Complete(instance, callback, parl.permission_return, parl.permission_result);
}

int32_t ParlService::StartRemoting(PP_Instance instance, PPB_Parl_RemotingEvent_Func event,
                                   void* user_data, PP_CompletionCallback callback) {
  if (event == nullptr) core_.misuse.Add("StartRemoting: no event callback");
  const ParlOptions& parl = core_.options.parl;
  if (parl.start_return == PP_OK_COMPLETIONPENDING) sessions_[instance] = {event, user_data};
  return Complete(instance, callback, parl.start_return, parl.start_result);
}

int32_t ParlService::StopRemoting(PP_Instance instance, PP_CompletionCallback callback) {
  const ParlOptions& parl = core_.options.parl;
  return Complete(instance, callback, parl.stop_return, parl.stop_result);
}

bool ParlService::FireEvent(PP_Instance instance, int32_t event) {
  const auto found = sessions_.find(instance);
  if (found == sessions_.end() || found->second.event == nullptr) return false;
  const Session session = found->second;  // a copy: the module may start another meanwhile
  session.event(session.user_data, event);
  return true;
}

}  // namespace mpbp::host
