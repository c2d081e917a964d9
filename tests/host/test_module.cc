#include "tests/host/test_module.h"

#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

namespace mpbp::test {
namespace {

TestModuleState state;
const PPB_Core_1_0* core;
const PPB_Var_1_1* vars;
const PPB_Var_Deprecated_0_3* script;
const PPB_Memory_Dev_0_1* memory;
const PPB_Instance_Private_0_1* instance_private;
const PPB_URLLoader_1_0* loaders;
const PPB_URLRequestInfo_1_0* requests;
const PPB_URLResponseInfo_1_0* responses;
const PPB_URLLoaderTrusted_0_3* trusted;
const PPB_Parl_Private_2_0* parl;

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

PP_Var Int(int32_t i) {
  PP_Var var{PP_VARTYPE_INT32, 0, {}};
  var.value.as_int = i;
  return var;
}

PP_CompletionCallback Note(const char* event) {
  return {[](void* data, int32_t result) {
            state.events.push_back(static_cast<const char*>(data) + (":" + std::to_string(result)));
          },
          const_cast<char*>(event), 0};
}

struct Fetch;
std::map<Fetch*, std::unique_ptr<Fetch>> fetches;  // under way

// One request, read to its end.
struct Fetch {
  PP_Instance instance = 0;
  PP_Resource loader = 0;
  char buffer[1024];

  template <void (Fetch::*step)(int32_t)>
  PP_CompletionCallback Then() {
    return {[](void* self, int32_t result) { (static_cast<Fetch*>(self)->*step)(result); }, this,
            PP_COMPLETIONCALLBACK_FLAG_NONE};
  }
  void Start(const std::map<int32_t, PP_Var>& properties, const std::string& body, bool universal) {
    const PP_Resource request = requests->Create(instance);
    for (const auto& [property, value] : properties) {
      requests->SetProperty(request, property, value);
    }
    requests->AppendDataToBody(request, body.data(), static_cast<uint32_t>(body.size()));
    loader = loaders->Create(instance);
    if (universal) trusted->GrantUniversalAccess(loader);
    const int32_t result = loaders->Open(loader, request, Then<&Fetch::OnOpen>());
    core->ReleaseResource(request);
    if (result != PP_OK_COMPLETIONPENDING) OnOpen(result);
  }
  void OnOpen(int32_t result) {
    state.results.push_back(result);
    if (result != PP_OK) return Finish();
    const PP_Resource info = loaders->GetResponseInfo(loader);
    const PP_Var parts[] = {responses->GetProperty(info, PP_URLRESPONSEPROPERTY_STATUSCODE),
                            responses->GetProperty(info, PP_URLRESPONSEPROPERTY_STATUSLINE),
                            responses->GetProperty(info, PP_URLRESPONSEPROPERTY_URL),
                            responses->GetProperty(info, PP_URLRESPONSEPROPERTY_HEADERS)};
    state.response = std::to_string(parts[0].value.as_int) + " " + Text(parts[1]) + " " +
                     Text(parts[2]) + "\n" + Text(parts[3]);
    for (const PP_Var part : parts) vars->Release(part);
    core->ReleaseResource(info);
    Read();
  }
  void Read() {
    const int32_t result =
        loaders->ReadResponseBody(loader, buffer, sizeof buffer, Then<&Fetch::OnRead>());
    if (result != PP_OK_COMPLETIONPENDING) OnRead(result);
  }
  void OnRead(int32_t result) {
    state.results.push_back(result);
    if (result <= 0) return Finish();
    state.body.append(buffer, static_cast<size_t>(result));
    Read();
  }
  void Finish() {
    core->ReleaseResource(loader);
    state.events.push_back("fetched");
    fetches.erase(this);
  }
};

PP_Var CallPage(Element& element, uint32_t argc, PP_Var* argv) {
  // What a page may clear or replace meanwhile is kept for the length of the call.
  const PP_Var function = element.on_message;
  vars->AddRef(function);
  PP_Var exception{};
  const PP_Var result = script->Call(function, PP_Var{}, argc, argv, &exception);
  vars->Release(function);
  if (exception.type == PP_VARTYPE_UNDEFINED) return result;
  vars->Release(result);
  return exception;
}

PP_Var StartFetch(Element& element, uint32_t argc, PP_Var* argv) {
  state.body.clear();
  state.response.clear();
  state.results.clear();
  const std::map<int32_t, PP_Var> properties = {{PP_URLREQUESTPROPERTY_URL, argv[0]},
                                                {PP_URLREQUESTPROPERTY_METHOD, argv[1]},
                                                {PP_URLREQUESTPROPERTY_HEADERS, argv[2]}};
  auto owned = std::make_unique<Fetch>();
  Fetch* const fetch = owned.get();
  fetches[fetch] = std::move(owned);
  fetch->instance = element.instance;
  fetch->Start(properties, Text(argv[3]), argc > 4);
  return {};
}

PP_Var CallWithNull(Element& element, uint32_t, PP_Var*) {
  PP_Var exception{};
  script->Call(element.on_message, PP_Var{PP_VARTYPE_NULL, 0, {}}, 0, nullptr, &exception);
  return exception;
}

// ---- Faults ----

PP_Var OverRelease(Element&, uint32_t, PP_Var*) {
  const PP_Var text = String("gone");
  vars->Release(text);
  vars->Release(text);
  return Int(vars->VarToUtf8(text, nullptr) == nullptr ? 0 : 1);
}

PP_Var DirtyException(Element& element, uint32_t, PP_Var*) {
  PP_Var exception = Int(1);
  return script->Call(element.on_message, PP_Var{}, 0, nullptr, &exception);
}

PP_Var OffThread(Element&, uint32_t, PP_Var*) {
  std::thread([] { vars->Release(String("x")); }).join();
  return {};
}

using Method = std::function<PP_Var(Element&, uint32_t argc, PP_Var* argv)>;

const std::map<std::string, Method>& Methods() {
  static const std::map<std::string, Method> methods = {
      {"echo",
       [](Element&, uint32_t, PP_Var* argv) {
         vars->AddRef(argv[0]);
         return argv[0];
       }},
      {"call", &CallPage},
      {"callNull", &CallWithNull},
      {"fetch", &StartFetch},
      {"badText", [](Element&, uint32_t, PP_Var*) { return String("\xC0\x80"); }},
      {"href",
       [](Element& element, uint32_t, PP_Var*) {
         const PP_Var window = instance_private->GetWindowObject(element.instance);
         const PP_Var names[] = {String("location"), String("href")};
         const PP_Var location = script->GetProperty(window, names[0], nullptr);
         const PP_Var href = script->GetProperty(location, names[1], nullptr);
         for (const PP_Var var : {window, location, names[0], names[1]}) vars->Release(var);
         return href;
       }},
      {"later",
       [](Element&, uint32_t, PP_Var* argv) {
         core->CallOnMainThread(argv[0].value.as_int, Note("late"), argv[0].value.as_int);
         return PP_Var{};
       }},
      {"fromThread",
       [](Element&, uint32_t, PP_Var*) {
         std::thread([] { core->CallOnMainThread(0, Note("thread"), 7); }).join();
         return PP_Var{};
       }},
      {"remote",
       [](Element& element, uint32_t, PP_Var*) {
         const auto on_event = [](void*, int32_t event) {
           state.events.push_back("event:" + std::to_string(event));
         };
         parl->RequestPermission(element.instance, 2, Note("permission"));
         parl->StartRemoting(element.instance, on_event, nullptr, Note("started"));
         return Int(parl->StopRemoting(element.instance, Note("stopped")));
       }},
      {"overRelease", &OverRelease},
      {"dirtyException", &DirtyException},
      {"offThread", &OffThread},
      {"leak", [](Element&, uint32_t, PP_Var*) { return String("leaked"), PP_Var{}; }},
      {"leakLoader",
       [](Element& element, uint32_t, PP_Var*) { return Int(loaders->Create(element.instance)); }},
      {"freeForeign",
       [](Element&, uint32_t, PP_Var*) {
         static int foreign;
         memory->MemFree(&foreign);
         return PP_Var{};
       }},
  };
  return methods;
}

Element& Self(void* object) { return *static_cast<Element*>(object); }

void GetNames(void* object, uint32_t* count, PP_Var** names, PP_Var*) {
  // An element without a listener counts wrong.
  const bool wrong = Self(object).on_message.type != PP_VARTYPE_OBJECT;
  *names = static_cast<PP_Var*>(memory->MemAlloc((wrong ? 1 : 2) * sizeof(PP_Var)));
  *count = 2;
  (*names)[0] = wrong ? PP_Var{} : String("onmessage");
  if (!wrong) (*names)[1] = String("broken");
}

constexpr PPP_Class_Deprecated kClass = {
    [](void*, PP_Var name, PP_Var*) {
      ++state.has_property_calls;
      return Text(name) == "onmessage" || Text(name) == "broken";
    },
    [](void*, PP_Var name, PP_Var*) { return Methods().contains(Text(name)); },
    [](void* object, PP_Var name, PP_Var* exception) {
      ++state.get_property_calls;
      if (Text(name) == "broken") {
        *exception = String("it is broken");
        return PP_Var{};
      }
      vars->AddRef(Self(object).on_message);
      return Self(object).on_message;
    },
    &GetNames,
    [](void* object, PP_Var, PP_Var value, PP_Var*) {
      vars->AddRef(value);
      vars->Release(std::exchange(Self(object).on_message, value));
    },
    [](void*, PP_Var, PP_Var* exception) { *exception = String("cannot remove"); },
    [](void* object, PP_Var method, uint32_t argc, PP_Var* argv, PP_Var* exception) {
      const auto found = Methods().find(Text(method));
      if (found != Methods().end()) return found->second(Self(object), argc, argv);
      *exception = String("no such method");
      return PP_Var{};
    },
    [](void*, uint32_t, PP_Var*, PP_Var*) { return PP_Var{}; },
    [](void* object) {
      state.events.push_back("deallocate");
      const std::unique_ptr<Element> element(&Self(object));
      vars->Release(element->on_message);
    },
};

constexpr PPP_Instance_1_1 kInstance = {
    [](PP_Instance, uint32_t argc, const char* names[], const char*[]) {
      state.events.push_back("create");
      return argc > 0 && std::string_view(names[0]) == "refuse" ? PP_FALSE : PP_TRUE;
    },
    [](PP_Instance) { state.events.push_back("destroy"); },
    [](PP_Instance, PP_Resource) {},
    [](PP_Instance, PP_Bool) {},
    [](PP_Instance, PP_Resource) { return PP_FALSE; },
};

constexpr PPP_Instance_Private_0_1 kPrivate = {[](PP_Instance instance) {
  return script->CreateObject(instance, &kClass, new Element{instance});
}};

template <typename T>
void Lookup(PPB_GetInterface get, const char* name, const T*& table) {
  table = static_cast<const T*>(get(name));
}

}  // namespace

TestModuleState& test_module_state() { return state; }

}  // namespace mpbp::test

#define MPBP_EXPORT __attribute__((visibility("default")))

MPBP_EXPORT int32_t PPP_InitializeModule(PP_Module module, PPB_GetInterface get) {
  using namespace mpbp::test;
  state = {};
  Lookup(get, PPB_CORE_INTERFACE_1_0, core);
  Lookup(get, PPB_VAR_INTERFACE_1_1, vars);
  Lookup(get, PPB_VAR_DEPRECATED_INTERFACE_0_3, script);
  Lookup(get, PPB_MEMORY_DEV_INTERFACE_0_1, memory);
  Lookup(get, PPB_INSTANCE_PRIVATE_INTERFACE_0_1, instance_private);
  Lookup(get, PPB_URLLOADER_INTERFACE_1_0, loaders);
  Lookup(get, PPB_URLREQUESTINFO_INTERFACE_1_0, requests);
  Lookup(get, PPB_URLRESPONSEINFO_INTERFACE_1_0, responses);
  Lookup(get, PPB_URLLOADERTRUSTED_INTERFACE_0_3, trusted);
  Lookup(get, PPB_PARL_PRIVATE_INTERFACE_2_0, parl);
  return module > 0 && core != nullptr && vars != nullptr ? PP_OK : PP_ERROR_FAILED;
}

MPBP_EXPORT const void* PPP_GetInterface(const char* name) {
  using namespace mpbp::test;
  const std::string_view wanted(name);
  if (wanted == PPP_INSTANCE_INTERFACE_1_1) return &kInstance;
  if (wanted == PPP_INSTANCE_PRIVATE_INTERFACE_0_1) return &kPrivate;
  return nullptr;
}

MPBP_EXPORT void PPP_ShutdownModule(void) { mpbp::test::state.events.push_back("shutdown"); }
