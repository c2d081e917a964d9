// The three functions that the module exports and the tables that it offers through them.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include "base/logging.h"
#include "base/staticobject.h"
#include "plugin/mpbp/ppapi/module.h"
#include "plugin/mpbp/ppapi/plugin.h"
#include "plugin/mpbp/ppapi/promptdelivery.h"
#include "ppapi/browser.h"
#include "ppapi/var.h"

#define MPBP_EXPORT __attribute__((visibility("default")))

namespace mpbp {
namespace {

// The current module; null before PPP_InitializeModule and after PPP_ShutdownModule.
std::unique_ptr<Module>& TheModule() {
  static StaticObject<std::unique_ptr<Module>> module;
  return *module;
}

bool process_ends = false;

// Its destructor runs before OnUnload when the process ends, and after it when the module is
// unloaded: destructors of static objects are then called by the last function of OnUnload's kind.
struct ExitWatch {
  ~ExitWatch() { process_ends = true; }
};

// Runs at the end of the process, and when the module is unloaded.
__attribute__((destructor)) void OnUnload() {
  if (process_ends) {
    PromptDelivery::StopAtExit();
    return;
  }
  // Unloaded without PPP_ShutdownModule: the browser's tables may be gone.
  ResetBrowserInterfaces();
  TheModule().reset();
  DestroyStaticObjects();
}

// Serves PPP_GetInterface while there is no module; null, as nothing sets one.
constexpr PPB_GetInterface kFallbackGetter = nullptr;

// Whatever goes wrong inside stays inside.
template <typename Result, typename Function>
Result Guarded(Result otherwise, Function function) noexcept {
  try {
    return function();
  } catch (const std::exception& e) {
    LOG(LS_ERROR) << "A call of the browser failed: " << e.what();
    return otherwise;
  }
}

// Holds up the loading of the module so that a debugger can be attached.
void DelayLoad() {
  const char* const value = getenv("MPARL_DELAY_LOAD");
  if (!value) return;
  const long seconds = strtol(value, nullptr, 10);
  if (static_cast<int32_t>(seconds) <= 0) return;
  LOG(LS_INFO) << "Delay loading MParl for " << static_cast<int32_t>(seconds) << " seconds.";
  sleep(static_cast<unsigned>(seconds));
}

PP_Bool DidCreate(PP_Instance instance, uint32_t, const char*[], const char*[]) {
  return Guarded(PP_FALSE, [&] {
    Module* const module = Module::Get();
    return module && module->AddInstance(instance) ? PP_TRUE : PP_FALSE;
  });
}

void DidDestroy(PP_Instance instance) {
  Guarded(0, [&] {
    if (Module* const module = Module::Get()) module->DestroyInstance(instance);
    return 0;
  });
}

void DidChangeView(PP_Instance, PP_Resource) {}
void DidChangeFocus(PP_Instance, PP_Bool) {}
PP_Bool HandleDocumentLoad(PP_Instance, PP_Resource) { return PP_FALSE; }

// Pages send through the script object only.
void HandleMessage(PP_Instance, PP_Var) {}

// None is asked for.
PP_Bool HandleInputEvent(PP_Instance, PP_Resource) { return PP_FALSE; }

PP_Var GetInstanceObject(PP_Instance instance) {
  return Guarded(Var().Detach(), [&] {
    Module* const module = Module::Get();
    const std::shared_ptr<PluginObject> object = module ? module->FindInstance(instance) : nullptr;
    return object ? object->GetInstanceObject().Detach() : Var().Detach();
  });
}

constexpr PPP_Instance_1_1 kInstance = {&DidCreate, &DidDestroy, &DidChangeView, &DidChangeFocus,
                                        &HandleDocumentLoad};
constexpr PPP_Messaging_1_0 kMessaging = {&HandleMessage};
constexpr PPP_InputEvent_0_1 kInputEvent = {&HandleInputEvent};
constexpr PPP_Instance_Private_0_1 kInstancePrivate = {&GetInstanceObject};

constexpr struct {
  const char* name;
  const void* table;
} kOffered[] = {
    {PPP_INSTANCE_INTERFACE_1_1, &kInstance},
    {PPP_MESSAGING_INTERFACE_1_0, &kMessaging},
    {PPP_INPUT_EVENT_INTERFACE_0_1, &kInputEvent},
    {PPP_INSTANCE_PRIVATE_INTERFACE_0_1, &kInstancePrivate},
};

int32_t InitializeModule(PP_Module id, PPB_GetInterface get_browser_interface) {
  static const ExitWatch watch;
  DelayLoad();
  TheModule().reset();  // a browser that forgot to shut down
  TheModule() = std::make_unique<Module>();
  if (TheModule()->Initialize(id, get_browser_interface)) return PP_OK;
  TheModule().reset();
  ResetBrowserInterfaces();
  return PP_ERROR_FAILED;
}

}  // namespace

Module* Module::Get() { return TheModule().get(); }

}  // namespace mpbp

extern "C" {

MPBP_EXPORT int32_t PPP_InitializeModule(PP_Module module, PPB_GetInterface get_browser_interface) {
  return mpbp::Guarded(PP_ERROR_FAILED,
                       [&] { return mpbp::InitializeModule(module, get_browser_interface); });
}

MPBP_EXPORT const void* PPP_GetInterface(const char* interface_name) {
  if (!interface_name) return nullptr;
  if (!mpbp::TheModule()) {
    return mpbp::kFallbackGetter ? mpbp::kFallbackGetter(interface_name) : nullptr;
  }
  for (const auto& offered : mpbp::kOffered) {
    if (strcmp(interface_name, offered.name) == 0) return offered.table;
  }
  return nullptr;
}

MPBP_EXPORT void PPP_ShutdownModule(void) {
  mpbp::Guarded(0, [] {
    mpbp::TheModule().reset();
    mpbp::ResetBrowserInterfaces();
    return 0;
  });
}

}  // extern "C"
