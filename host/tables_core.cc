// PPB_Core, PPB_Memory(Dev), PPB_Instance_Private, and the tables nobody calls.
#include <algorithm>
#include <array>
#include <chrono>

#include "host/core.h"
#include "host/page.h"

namespace mpbp::host {
namespace {

double Seconds(auto since_start) { return std::chrono::duration<double>(since_start).count(); }

void CallOnMainThread(int32_t delay_ms, PP_CompletionCallback callback, int32_t result) {
  Core* core = AnyThreadCore();
  if (core == nullptr) return;
  if (callback.func == nullptr) {
    core->misuse.Add("CallOnMainThread: no function");
    return;
  }
  if (core->loop.IsMainThread()) core->OnCall("CallOnMainThread");
  if (core->options.no_timers && delay_ms > 0) return;
  core->PostCallback(callback, result, std::min(delay_ms, core->options.longest_delay_ms));
}

constexpr PPB_Core_1_0 kCore = {
    [](PP_Resource resource) {
      if (Core* core = MainThreadCore("AddRefResource")) core->resources.AddRef(resource);
    },
    [](PP_Resource resource) {
      if (Core* core = MainThreadCore("ReleaseResource")) core->resources.Release(resource);
    },
    []() -> PP_Time { return Seconds(std::chrono::system_clock::now().time_since_epoch()); },
    []() -> PP_TimeTicks { return Seconds(std::chrono::steady_clock::now().time_since_epoch()); },
    &CallOnMainThread,
    [] {
      const Core* core = AnyThreadCore();
      return core != nullptr && core->loop.IsMainThread() ? PP_TRUE : PP_FALSE;
    },
};

constexpr PPB_Memory_Dev_0_1 kMemory = {
    [](uint32_t bytes) -> void* {
      Core* core = AnyThreadCore();
      return core != nullptr ? core->memory.Alloc(bytes) : nullptr;
    },
    [](void* block) {
      if (Core* core = AnyThreadCore()) core->memory.Free(block);
    },
};

PP_Var PageObjectVar(PP_Instance instance, const char* where,
                     const Value& (Page::*object)() const) {
  Core* core = MainThreadCore(where);
  const auto page = core != nullptr ? core->FindPage(instance, where) : nullptr;
  return page ? core->vars.FromValue((page.get()->*object)()) : UndefinedVar();
}

constexpr PPB_Instance_Private_0_1 kInstancePrivate = {
    [](PP_Instance instance) { return PageObjectVar(instance, "GetWindowObject", &Page::window); },
    [](PP_Instance instance) {
      return PageObjectVar(instance, "GetOwnerElementObject", &Page::owner_element);
    },
    [](PP_Instance instance, PP_Var, PP_Var* exception) {
      Core* core = MainThreadCore("ExecuteScript");
      if (core != nullptr && core->FindPage(instance, "ExecuteScript") && exception != nullptr) {
        *exception = core->vars.FromUtf8("this browser has no script interpreter");
      }
      return UndefinedVar();
    },
};

void UnexpectedCall() {
  if (Core* core = AnyThreadCore()) core->misuse.Add("a view or input event function was called");
}

// Longer than any of the tables it stands for.
constexpr std::array<void (*)(), 16> kUncalled = [] {
  std::array<void (*)(), 16> table{};
  table.fill(&UnexpectedCall);
  return table;
}();

}  // namespace

const void* FindCoreTable(const std::string& name) {
  if (name == PPB_CORE_INTERFACE_1_0) return &kCore;
  if (name == PPB_MEMORY_DEV_INTERFACE_0_1) return &kMemory;
  if (name == PPB_INSTANCE_PRIVATE_INTERFACE_0_1) return &kInstancePrivate;
  for (const char* uncalled :
       {PPB_VIEW_INTERFACE_1_1, PPB_VIEW_INTERFACE_1_0, PPB_INPUT_EVENT_INTERFACE_1_0,
        PPB_KEYBOARD_INPUT_EVENT_INTERFACE_1_0, PPB_MOUSE_INPUT_EVENT_INTERFACE_1_1,
        PPB_WHEEL_INPUT_EVENT_INTERFACE_1_0, PPB_TOUCH_INPUT_EVENT_INTERFACE_1_0}) {
    if (name == uncalled) return static_cast<const void*>(kUncalled.data());
  }
  return nullptr;
}

}  // namespace mpbp::host
