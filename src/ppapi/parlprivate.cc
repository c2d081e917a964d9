#include "ppapi/parlprivate.h"

#include "ppapi/browser.h"

namespace mpbp {
namespace {

constexpr int32_t kPermissionKindOf10 = 0;  // the one that version 1.0 knows

int32_t CompleteWithoutInterface(const PP_CompletionCallback& callback) {
  return CallOnMainThread(0, callback, PP_ERROR_NOINTERFACE) ? PP_OK_COMPLETIONPENDING
                                                             : PP_ERROR_NOINTERFACE;
}

}  // namespace

ParlPrivate::ParlPrivate(PP_Instance instance) : instance_(instance) {
  if (Browser().parl_private_1_0) {
    resource_ = Resource(Browser().parl_private_1_0->Create(instance));
  }
}

int32_t ParlPrivate::RequestPermission(int32_t kind, const PP_CompletionCallback& callback) {
  const BrowserInterfaces& browser = Browser();
  if (browser.parl_private) {
    return browser.parl_private->RequestPermission(instance_, kind, callback);
  }
  if (browser.parl_private_1_0 && kind == kPermissionKindOf10) {
    return browser.parl_private_1_0->GetPermission(resource_.get(), callback);
  }
  return CompleteWithoutInterface(callback);
}

int32_t ParlPrivate::StartRemoting(PPB_Parl_RemotingEvent_Func event, void* user_data,
                                   const PP_CompletionCallback& callback) {
  const PPB_Parl_Private_2_0* const table = Browser().parl_private;
  return table ? table->StartRemoting(instance_, event, user_data, callback)
               : CompleteWithoutInterface(callback);
}

int32_t ParlPrivate::StopRemoting(const PP_CompletionCallback& callback) {
  const PPB_Parl_Private_2_0* const table = Browser().parl_private;
  return table ? table->StopRemoting(instance_, callback) : CompleteWithoutInterface(callback);
}

}  // namespace mpbp
