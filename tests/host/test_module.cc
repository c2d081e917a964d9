#include "tests/host/test_module.h"

#include <cstdint>
#include <string_view>
#include <thread>
#include <utility>

namespace mpbp::test {
namespace {

std::vector<std::string> events;
const PPB_Core_1_0* core;
const PPB_Var_1_1* vars;
const PPB_Var_Deprecated_0_3* script;
const PPB_Memory_Dev_0_1* memory;
const PPB_URLLoader_1_0* loaders;
const PPB_URLRequestInfo_1_0* requests;
const PPB_URLLoaderTrusted_0_3* trusted;

// The element's object.
struct Element {
  PP_Instance instance;
  PP_Var on_message{};
};

std::string Text(PP_Var var) {
  uint32_t length = 0;
  const char* bytes = vars->VarToUtf8(var, &length);
  return bytes == nullptr ? "" : std::string(bytes, length);
}

PP_Var String(std::string_view text) {
  return vars->VarFromUtf8(text.data(), static_cast<uint32_t>(text.size()));
}

PP_Var Dead() {
  const PP_Var text = String("gone");
  vars->Release(text);
  return text;
}

PP_CompletionCallback NoteLate() {
  return {[](void*, int32_t late) { events.push_back("late:" + std::to_string(late)); }, nullptr,
          0};
}

// Opens a request, and releases it when that has ended.
void OpenLoader(const Element& element, PP_Var url) {
  const auto opened = [](void* loader, int32_t result) {
    events.push_back("opened:" + std::to_string(result));
    core->ReleaseResource(static_cast<PP_Resource>(reinterpret_cast<intptr_t>(loader)));
  };
  const PP_Resource request = requests->Create(element.instance);
  requests->SetProperty(request, PP_URLREQUESTPROPERTY_URL, url);
  const PP_Resource loader = loaders->Create(element.instance);
  trusted->GrantUniversalAccess(loader);
  // Never dereferenced: the browser only hands it back.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  loaders->Open(loader, request, {opened, reinterpret_cast<void*>(intptr_t{loader}), 0});
  core->ReleaseResource(request);
}

// Returns what the page's function threw or returned.
PP_Var CallPage(Element& element, PP_Var* argv) {
  // What a page may clear or replace meanwhile is kept for the length of the call.
  const PP_Var function = element.on_message;
  vars->AddRef(function);
  PP_Var exception{};
  const PP_Var result = script->Call(function, PP_Var{}, 1, argv, &exception);
  vars->Release(function);
  if (exception.type == PP_VARTYPE_UNDEFINED) return result;
  vars->Release(result);
  return exception;
}

Element& Self(void* object) { return *static_cast<Element*>(object); }

// Says that there are two names, and makes room for one.
void GetNames(void*, uint32_t* count, PP_Var** names, PP_Var*) {
  *names = static_cast<PP_Var*>(memory->MemAlloc(sizeof(PP_Var)));
  *count = 2;
  **names = PP_Var{};
}

PP_Var CallMethod(void* object, PP_Var method, uint32_t, PP_Var* argv, PP_Var* exception) {
  Element& element = Self(object);
  const std::string name = Text(method);
  if (name == "echo") return vars->AddRef(argv[0]), argv[0];
  if (name == "call") return CallPage(element, argv);
  if (name == "open") OpenLoader(element, argv[0]);
  if (name == "throw") *exception = String("no");
  if (name == "later") {  // posted by another thread
    const int32_t delay = argv[0].value.as_int;
    std::thread([delay] { core->CallOnMainThread(delay, NoteLate(), delay); }).join();
  }
  // Faults.
  if (name == "overRelease") vars->Release(Dead());
  if (name == "deadVar") Text(Dead());
  if (name == "offThread") std::thread([] { vars->Release(String("x")); }).join();
  if (name == "freeForeign") memory->MemFree(&element);
  if (name == "dirtyException") script->Call(element.on_message, PP_Var{}, 0, argv, &argv[0]);
  if (name == "leak") {
    String("leaked");
    loaders->Create(element.instance);
  }
  return {};
}

constexpr PPP_Class_Deprecated kClass = {
    [](void*, PP_Var name, PP_Var*) { return Text(name) == "onmessage"; },
    [](void*, PP_Var name, PP_Var*) { return Text(name) != "send" && Text(name) != "src"; },
    [](void* object, PP_Var, PP_Var*) {
      vars->AddRef(Self(object).on_message);
      return Self(object).on_message;
    },
    &GetNames,
    [](void* object, PP_Var, PP_Var value, PP_Var*) {
      vars->AddRef(value);
      vars->Release(std::exchange(Self(object).on_message, value));
    },
    [](void*, PP_Var, PP_Var*) {},
    &CallMethod,
    [](void*, uint32_t, PP_Var*, PP_Var*) { return PP_Var{}; },
    [](void* object) {
      events.push_back("deallocate");
      vars->Release(Self(object).on_message);
      delete &Self(object);
    },
};

constexpr PPP_Instance_1_1 kInstance = {
    [](PP_Instance, uint32_t argc, const char* names[], const char*[]) {
      events.push_back("create");
      return argc > 0 && std::string_view(names[0]) == "refuse" ? PP_FALSE : PP_TRUE;
    },
    [](PP_Instance) { events.push_back("destroy"); },
    [](PP_Instance, PP_Resource) {},
    [](PP_Instance, PP_Bool) {},
    [](PP_Instance, PP_Resource) { return PP_FALSE; },
};

constexpr PPP_Instance_Private_0_1 kPrivate = {[](PP_Instance instance) {
  return script->CreateObject(instance, &kClass, new Element{instance});
}};

}  // namespace

std::vector<std::string>& test_module_events() { return events; }

}  // namespace mpbp::test

#define MPBP_EXPORT __attribute__((visibility("default")))

MPBP_EXPORT int32_t PPP_InitializeModule(PP_Module, PPB_GetInterface get) {
  using namespace mpbp::test;
  events.clear();
  const auto look_up = [get]<typename T>(const T*& table, const char* name) {
    table = static_cast<const T*>(get(name));
  };
  look_up(core, PPB_CORE_INTERFACE_1_0);
  look_up(vars, PPB_VAR_INTERFACE_1_1);
  look_up(script, PPB_VAR_DEPRECATED_INTERFACE_0_3);
  look_up(memory, PPB_MEMORY_DEV_INTERFACE_0_1);
  look_up(loaders, PPB_URLLOADER_INTERFACE_1_0);
  look_up(requests, PPB_URLREQUESTINFO_INTERFACE_1_0);
  look_up(trusted, PPB_URLLOADERTRUSTED_INTERFACE_0_3);
  return PP_OK;
}

MPBP_EXPORT const void* PPP_GetInterface(const char* name) {
  using namespace mpbp::test;
  const std::string_view wanted(name);
  if (wanted == PPP_INSTANCE_INTERFACE_1_1) return &kInstance;
  if (wanted == PPP_INSTANCE_PRIVATE_INTERFACE_0_1) return &kPrivate;
  return nullptr;
}

MPBP_EXPORT void PPP_ShutdownModule(void) { mpbp::test::events.push_back("shutdown"); }
