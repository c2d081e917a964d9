// Plays the browser for one module: loads it, shows it pages, runs the main thread for it, and
// keeps strict count of everything it is handed. The module's tests, the demo and the mpbp-host
// program all use this one.
//
//   Host host;
//   if (auto error = host.Load("libmodule.so")) return Fail(*error);
//   auto page = host.CreatePage("https://www.murmel.example/");
//   page->SetOnMessage([](const std::string& text) { puts(text.c_str()); });
//   host.loop().RunUntil([&] { return page->Send("hello").exception == std::nullopt; }, 5000);
//   host.Unload();
//   assert(host.Misuse().empty() && host.LeakedVars().empty());
#ifndef MPBP_HOST_HOST_H_
#define MPBP_HOST_HOST_H_

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/main_loop.h"
#include "host/module_library.h"
#include "host/options.h"
#include "host/page.h"
#include "host/page_function.h"
#include "host/parl_service.h"
#include "host/value.h"

namespace mpbp::host {

// One at a time in a process. The thread that makes it is the browser's main thread, and the only
// one that may call it, except where a function says otherwise.
class Host {
 public:
  explicit Host(HostOptions options = {});
  ~Host();  // unloads
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  HostOptions& options();
  MainLoop& loop();

  // Loads the file and initialises the module with a positive module id. Returns what went wrong;
  // nothing when all went well. A module that was loaded before is unloaded first.
  [[nodiscard]] std::optional<std::string> Load(const std::string& path);
  // The same for a module that is linked into the program.
  [[nodiscard]] std::optional<std::string> LoadLinked(const EntryPoints& module);
  bool loaded() const;
  // Destroys every page's instance, runs what is still posted (see HostOptions::drop_pending), ends
  // the module and closes its file. Not from inside a callback. Harmless when none is loaded.
  void Unload();
  // Closes the module's file without ending instances or module, as a browser does in a hurry.
  // Script lets go of the module's objects, and what was to be called later is not. Not from inside
  // a callback.
  void Abandon();
  // A table of the module's own; null when it has none by that name.
  const void* ModuleInterface(const char* name) const;

  // A new page: DidCreate has run when this returns. Never null; see Page::has_plugin. The host
  // keeps the page for as long as it has an instance.
  std::shared_ptr<Page> CreatePage(const std::string& url, const Page::Attributes& attributes = {});

  // Destroys every page's instance, as if each page had removed its element. From anywhere.
  void DestroyInstances();

  // What loop() does, for brevity.
  bool RunOnce(int max_wait_ms = 0) { return loop().RunOnce(max_wait_ms); }
  void RunFor(int ms) { loop().RunFor(ms); }
  bool RunUntil(const std::function<bool()>& done, int timeout_ms) {
    return loop().RunUntil(done, timeout_ms);
  }

  // Names of the browser interfaces the module asked for since it was loaded.
  const std::set<std::string>& asked_interfaces() const;
  // Permissions that were asked for, in order.
  const std::vector<ParlService::Request>& permission_requests() const;

  // Everything the module did wrong so far. Any thread.
  std::vector<std::string> Misuse() const;
  void ClearMisuse();

  // What the module holds at this moment; what it had left once it was unloaded.
  size_t live_vars() const;
  size_t live_resources() const;
  size_t live_allocations() const;  // blocks of PPB_Memory(Dev)
  size_t live_objects() const;      // its script objects that were not deallocated
  // The same, one text for each. Empty after Unload when the module let go of everything.
  std::vector<std::string> LeakedVars() const;
  std::vector<std::string> LeakedResources() const;
  // Every reference to a var or a resource, every block and every object of the above.
  size_t leaked() const;

 private:
  struct Left {
    std::vector<std::string> vars;
    std::vector<std::string> resources;
    size_t references = 0;
    size_t allocations = 0;
    size_t objects = 0;
  };
  std::optional<std::string> Initialise();
  void DeallocateObjects();
  size_t References() const;
  // Drops what the module left behind and closes its file.
  void Forget();

  std::unique_ptr<struct Core> core_;
  Left left_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_HOST_H_
