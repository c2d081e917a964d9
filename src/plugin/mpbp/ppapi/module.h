// The module, one per process: made by PPP_InitializeModule, gone with PPP_ShutdownModule.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_MODULE_H_
#define MPBP_PLUGIN_MPBP_PPAPI_MODULE_H_

#include <map>
#include <memory>

#include "abi/browser_abi.h"

namespace mpbp {

class PluginObject;

// On the browser's main thread.
class Module {
 public:
  Module() = default;
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  // Destroys the instances that the browser has left, and releases the log.
  virtual ~Module();

  // Sets up the log. True.
  [[nodiscard]] virtual bool Init();
  virtual std::shared_ptr<PluginObject> CreateInstance(PP_Instance instance);

  // The current module, or null.
  static Module* Get();
  // Fetches the browser's tables and calls Init. False without "PPB_Core;1.0" or when Init fails.
  [[nodiscard]] bool Initialize(PP_Module module, PPB_GetInterface get_browser_interface);

  // Makes the instance and initialises it. False when it cannot be used; it is there all the same,
  // until DestroyInstance.
  [[nodiscard]] bool AddInstance(PP_Instance instance);
  // Harmless for an unknown instance. The instance's own calls may be on the stack.
  void DestroyInstance(PP_Instance instance);
  // Null when there is none.
  std::shared_ptr<PluginObject> FindInstance(PP_Instance instance) const;

 private:
  std::map<PP_Instance, std::shared_ptr<PluginObject>> instances_;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_MODULE_H_
