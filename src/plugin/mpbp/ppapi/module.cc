#include "plugin/mpbp/ppapi/module.h"

#include "base/logging.h"
#include "plugin/mpbp/common/version.h"
#include "plugin/mpbp/ppapi/plugin.h"
#include "plugin/pluginutils.h"
#include "ppapi/browser.h"

namespace mpbp {
namespace {

constexpr char kLogTag[] = "pluginppapi";
constexpr char kLogFileName[] = "mpbppapiplugin.log";

}  // namespace

Module::~Module() {
  while (!instances_.empty()) DestroyInstance(instances_.begin()->first);
  ReleasePluginLog();
}

bool Module::Init() {
  LOG(LS_VERBOSE) << "Init";
  SetupPluginLogging(kLogTag, kLogFileName, PluginVersion());
  return true;
}

bool Module::Initialize(PP_Module module, PPB_GetInterface get_browser_interface) {
  FetchBrowserInterfaces(module, get_browser_interface);
  return Browser().core != nullptr && Init();
}

std::shared_ptr<PluginObject> Module::CreateInstance(PP_Instance instance) {
  return std::make_shared<PluginObject>(instance);
}

bool Module::AddInstance(PP_Instance instance) {
  DestroyInstance(instance);
  // The browser may end the instance from inside any of our calls, that of the constructor too.
  instances_[instance] = nullptr;
  const std::shared_ptr<PluginObject> object = CreateInstance(instance);
  const auto found = instances_.find(instance);
  if (found == instances_.end()) {
    object->Destroy();
    return false;
  }
  found->second = object;
  return object->Init();
}

void Module::DestroyInstance(PP_Instance instance) {
  const auto found = instances_.find(instance);
  if (found == instances_.end()) return;
  const std::shared_ptr<PluginObject> object = std::move(found->second);
  instances_.erase(found);
  if (object) object->Destroy();
}

std::shared_ptr<PluginObject> Module::FindInstance(PP_Instance instance) const {
  const auto found = instances_.find(instance);
  return found == instances_.end() ? nullptr : found->second;
}

}  // namespace mpbp
