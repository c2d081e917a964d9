#include "ppapi/browser.h"

#include <type_traits>
#include <utility>

namespace mpbp {
namespace {

BrowserInterfaces& Interfaces() {
  static BrowserInterfaces interfaces;
  return interfaces;
}

template <typename Table>
void Fetch(PPB_GetInterface get_interface, const char* name, const Table*& table) {
  table = static_cast<const Table*>(get_interface(name));
}

template <typename Table>
VarFunctions FunctionsOf(const Table& table) {
  VarFunctions functions;
  functions.add_ref = table.AddRef;
  functions.release = table.Release;
  functions.to_utf8 = table.VarToUtf8;
  if constexpr (std::is_same_v<Table, PPB_Var_1_1>) {
    functions.from_utf8 = table.VarFromUtf8;
  } else {
    functions.from_utf8_for_module = table.VarFromUtf8;
  }
  return functions;
}

VarFunctions FetchVarFunctions(PPB_GetInterface get, const PPB_Var_Deprecated_0_3* var_deprecated) {
  const PPB_Var_1_1* var = nullptr;
  Fetch(get, PPB_VAR_INTERFACE_1_1, var);
  if (var) return FunctionsOf(*var);
  const PPB_Var_1_0* var_1_0 = nullptr;
  Fetch(get, PPB_VAR_INTERFACE_1_0, var_1_0);
  if (var_1_0) return FunctionsOf(*var_1_0);
  return var_deprecated ? FunctionsOf(*var_deprecated) : VarFunctions();
}

}  // namespace

const BrowserInterfaces& Browser() { return Interfaces(); }

void ResetBrowserInterfaces() { Interfaces() = BrowserInterfaces(); }

void FetchBrowserInterfaces(PP_Module module, PPB_GetInterface get) {
  ResetBrowserInterfaces();
  if (!get) return;
  BrowserInterfaces& to = Interfaces();
  to.module = module;
  Fetch(get, PPB_CORE_INTERFACE_1_0, to.core);
  Fetch(get, PPB_VAR_DEPRECATED_INTERFACE_0_3, to.var_deprecated);
  to.var = FetchVarFunctions(get, to.var_deprecated);
  Fetch(get, PPB_INSTANCE_PRIVATE_INTERFACE_0_1, to.instance_private);
  Fetch(get, PPB_VIEW_INTERFACE_1_1, to.view);
  if (!to.view) Fetch(get, PPB_VIEW_INTERFACE_1_0, to.view);
  Fetch(get, PPB_INPUT_EVENT_INTERFACE_1_0, to.input_event);
  Fetch(get, PPB_KEYBOARD_INPUT_EVENT_INTERFACE_1_0, to.keyboard_input_event);
  Fetch(get, PPB_MOUSE_INPUT_EVENT_INTERFACE_1_1, to.mouse_input_event);
  Fetch(get, PPB_WHEEL_INPUT_EVENT_INTERFACE_1_0, to.wheel_input_event);
  Fetch(get, PPB_TOUCH_INPUT_EVENT_INTERFACE_1_0, to.touch_input_event);
  Fetch(get, PPB_MEMORY_DEV_INTERFACE_0_1, to.memory);
  Fetch(get, PPB_URLLOADER_INTERFACE_1_0, to.url_loader);
  Fetch(get, PPB_URLREQUESTINFO_INTERFACE_1_0, to.url_request_info);
  Fetch(get, PPB_URLRESPONSEINFO_INTERFACE_1_0, to.url_response_info);
  Fetch(get, PPB_URLLOADERTRUSTED_INTERFACE_0_3, to.url_loader_trusted);
  Fetch(get, PPB_PARL_PRIVATE_INTERFACE_2_0, to.parl_private);
  if (!to.parl_private) Fetch(get, PPB_PARL_PRIVATE_INTERFACE_1_0, to.parl_private_1_0);
}

bool CallOnMainThread(int32_t delay_ms, const PP_CompletionCallback& callback, int32_t result) {
  const PPB_Core_1_0* const core = Browser().core;
  if (!core) return false;
  core->CallOnMainThread(delay_ms, callback, result);
  return true;
}

}  // namespace mpbp
