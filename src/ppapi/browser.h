// The browser's side of the plug-in interface, as the module uses it: the tables it offers, fetched
// once when the module is initialised. On the browser's main thread only.
//
// A table that the browser lacks makes what needs it fail quietly: an undefined var, a null
// resource, false.
#ifndef MPBP_PPAPI_BROWSER_H_
#define MPBP_PPAPI_BROWSER_H_

#include "abi/browser_abi.h"

namespace mpbp {

// Strings and references, of whichever table has them: "PPB_Var;1.1", "PPB_Var;1.0" or, as the last
// resort, "PPB_Var(Deprecated);0.3". One of the two that make strings is set, or nothing is.
struct VarFunctions {
  void (*add_ref)(PP_Var) = nullptr;
  void (*release)(PP_Var) = nullptr;
  const char* (*to_utf8)(PP_Var, uint32_t* len) = nullptr;
  PP_Var (*from_utf8)(const char* data, uint32_t len) = nullptr;
  PP_Var (*from_utf8_for_module)(PP_Module, const char* data, uint32_t len) = nullptr;
};

// Pointers are null where the browser lacks the table. The tables belong to the browser and stay
// until the module is shut down.
struct BrowserInterfaces {
  PP_Module module = 0;
  const PPB_Core_1_0* core = nullptr;
  VarFunctions var;
  const PPB_Var_Deprecated_0_3* var_deprecated = nullptr;
  const PPB_Instance_Private_0_1* instance_private = nullptr;
  const PPB_Memory_Dev_0_1* memory = nullptr;
  const PPB_URLLoader_1_0* url_loader = nullptr;
  const PPB_URLRequestInfo_1_0* url_request_info = nullptr;
  const PPB_URLResponseInfo_1_0* url_response_info = nullptr;
  const PPB_URLLoaderTrusted_0_3* url_loader_trusted = nullptr;
  const PPB_Parl_Private_2_0* parl_private = nullptr;
  const PPB_Parl_Private_1_0* parl_private_1_0 = nullptr;  // only where there is no 2.0

  // Views and input events: no function of these is called.
  const void* view = nullptr;
  const void* input_event = nullptr;
  const void* keyboard_input_event = nullptr;
  const void* mouse_input_event = nullptr;
  const void* wheel_input_event = nullptr;
  const void* touch_input_event = nullptr;
};

// What the browser offered at the last FetchBrowserInterfaces; all null before and after a reset.
const BrowserInterfaces& Browser();
void FetchBrowserInterfaces(PP_Module module, PPB_GetInterface get_interface);
void ResetBrowserInterfaces();

// Runs `callback` on the main thread after delay_ms. False without "PPB_Core;1.0".
[[nodiscard]] bool CallOnMainThread(int32_t delay_ms, const PP_CompletionCallback& callback,
                                    int32_t result);

}  // namespace mpbp

#endif  // MPBP_PPAPI_BROWSER_H_
