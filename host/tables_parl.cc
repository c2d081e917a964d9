// PPB_Parl_Private, which is offered only when the options say so.
#include <memory>

#include "host/core.h"
#include "host/page.h"
#include "host/parl_resource.h"

namespace mpbp::host {
namespace {

PP_Resource Create(PP_Instance instance) {
  Core* core = MainThreadCore("Parl.Create");
  if (core == nullptr || !core->FindPage(instance, "Parl.Create")) return 0;
  return core->resources.Add(instance, std::make_shared<ParlResource>(instance));
}

int32_t GetPermission(PP_Resource handle, PP_CompletionCallback callback) {
  Core* core = MainThreadCore("GetPermission");
  const auto resource =
      core != nullptr ? core->resources.Get<ParlResource>(handle, "GetPermission") : nullptr;
  if (!resource) return PP_ERROR_BADRESOURCE;
  return core->parl.RequestPermission(resource->instance, 0, callback);
}

int32_t RequestPermission(PP_Instance instance, int32_t kind, PP_CompletionCallback callback) {
  Core* core = MainThreadCore("RequestPermission");
  if (core == nullptr || !core->FindPage(instance, "RequestPermission")) {
    return PP_ERROR_BADARGUMENT;
  }
  return core->parl.RequestPermission(instance, kind, callback);
}

int32_t StartRemoting(PP_Instance instance, PPB_Parl_RemotingEvent_Func event, void* user_data,
                      PP_CompletionCallback callback) {
  Core* core = MainThreadCore("StartRemoting");
  if (core == nullptr || !core->FindPage(instance, "StartRemoting")) return PP_ERROR_BADARGUMENT;
  return core->parl.StartRemoting(instance, event, user_data, callback);
}

int32_t StopRemoting(PP_Instance instance, PP_CompletionCallback callback) {
  Core* core = MainThreadCore("StopRemoting");
  if (core == nullptr || !core->FindPage(instance, "StopRemoting")) return PP_ERROR_BADARGUMENT;
  return core->parl.StopRemoting(instance, callback);
}

constexpr PPB_Parl_Private_1_0 kParl10 = {&Create, &GetPermission};
constexpr PPB_Parl_Private_2_0 kParl20 = {&RequestPermission, &StartRemoting, &StopRemoting};

}  // namespace

const void* FindParlTable(const std::string& name, const ParlOptions& options) {
  if (name == PPB_PARL_PRIVATE_INTERFACE_1_0 && options.offer_1_0) return &kParl10;
  if (name == PPB_PARL_PRIVATE_INTERFACE_2_0 && options.offer_2_0) return &kParl20;
  return nullptr;
}

}  // namespace mpbp::host
