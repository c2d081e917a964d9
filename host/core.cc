#include "host/core.h"

#include <atomic>

namespace mpbp::host {
namespace {

std::atomic<Core*> current_core{nullptr};

}  // namespace

void SetCurrentCore(Core* core) { current_core = core; }

Core* AnyThreadCore() { return current_core; }

Core* MainThreadCore(const char* function) {
  Core* core = current_core;
  if (core == nullptr) return nullptr;
  if (core->loop.IsMainThread()) {
    core->OnCall(function);
    return core;
  }
  core->misuse.Add(std::string(function) + ": called off the main thread");
  return nullptr;
}

std::shared_ptr<Page> Core::FindPage(PP_Instance instance, const char* where) {
  const auto found = instances.find(instance);
  if (found != instances.end()) return found->second;
  misuse.Add(std::string(where) + ": there is no instance " + std::to_string(instance));
  return nullptr;
}

void Core::OnCall(const char* function) {
  // A copy: it may set another.
  if (const auto on_call = options.on_call) on_call(function);
}

void Core::PostCallback(PP_CompletionCallback callback, int32_t result, int32_t delay_ms) {
  if (options.complete_inside && delay_ms == 0 && loop.IsMainThread()) {
    callback.func(callback.user_data, result);
    return;
  }
  loop.Post(delay_ms, [callback, result] { callback.func(callback.user_data, result); });
}

const void* GetBrowserInterface(const char* name) {
  Core* core = MainThreadCore("get_browser_interface");
  if (core == nullptr || name == nullptr) return nullptr;
  core->asked.insert(name);
  if (core->options.withheld.contains(name)) return nullptr;
  if (const void* table = FindCoreTable(name)) return table;
  if (const void* table = FindVarTable(name)) return table;
  if (const void* table = FindUrlTable(name)) return table;
  return FindParlTable(name, core->options.parl);
}

}  // namespace mpbp::host
