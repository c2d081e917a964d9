// What the browser's tables work on. Private to the host library.
#ifndef MPBP_HOST_CORE_H_
#define MPBP_HOST_CORE_H_

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "abi/browser_abi.h"
#include "host/main_loop.h"
#include "host/memory_table.h"
#include "host/misuse_log.h"
#include "host/module_library.h"
#include "host/options.h"
#include "host/parl_service.h"
#include "host/resource_table.h"
#include "host/var_table.h"

namespace mpbp::host {

class ModuleObject;
class Page;

struct Core {
  HostOptions options;
  MisuseLog misuse;
  MainLoop loop;
  MemoryTable memory{misuse};
  VarTable vars{misuse};
  ResourceTable resources{misuse};
  ParlService parl{*this};

  ModuleLibrary library;
  EntryPoints module;  // all null while no module is loaded
  PP_Module module_id = 0;
  std::set<std::string> asked;  // interfaces the module asked for

  std::map<PP_Instance, std::shared_ptr<Page>> instances;
  PP_Instance next_instance = -1001;  // counts downwards: a handle may be negative
  std::set<ModuleObject*> objects;    // not deallocated yet

  template <typename Table>
  const Table* ModuleInterface(const char* name) const {
    return module.get_interface == nullptr ? nullptr
                                           : static_cast<const Table*>(module.get_interface(name));
  }
  // Null, with the misuse recorded, when there is no such instance.
  std::shared_ptr<Page> FindPage(PP_Instance instance, const char* where);
  // Runs HostOptions::on_call. Main thread.
  void OnCall(const char* function);
  // Runs the callback after `delay_ms`, or at once where the options say so.
  void PostCallback(PP_CompletionCallback callback, int32_t result, int32_t delay_ms = 0);
};

// The tables have no place for a context, so that a process has one host at a time.
void SetCurrentCore(Core* core);
// Null without a host. Any thread.
Core* AnyThreadCore();
// Null without a host, and on any but the main thread, which is recorded as misuse of `function`.
Core* MainThreadCore(const char* function);

// The getter that is passed to the module.
const void* GetBrowserInterface(const char* name);

// Each null when the name is none of theirs.
const void* FindCoreTable(const std::string& name);
const void* FindVarTable(const std::string& name);
const void* FindUrlTable(const std::string& name);
const void* FindParlTable(const std::string& name, const ParlOptions& options);

}  // namespace mpbp::host

#endif  // MPBP_HOST_CORE_H_
