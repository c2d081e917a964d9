#ifndef MPBP_HOST_MODULE_LIBRARY_H_
#define MPBP_HOST_MODULE_LIBRARY_H_

#include <optional>
#include <string>

#include "abi/browser_abi.h"

namespace mpbp::host {

// The three functions a module exports.
struct EntryPoints {
  int32_t (*initialize)(PP_Module, PPB_GetInterface) = nullptr;
  const void* (*get_interface)(const char*) = nullptr;
  void (*shutdown)() = nullptr;
};

// A module's file in memory. Main thread only.
class ModuleLibrary {
 public:
  ModuleLibrary() = default;
  ~ModuleLibrary() { Close(); }
  ModuleLibrary(const ModuleLibrary&) = delete;
  ModuleLibrary& operator=(const ModuleLibrary&) = delete;

  // Says what went wrong, in which case nothing is open; nothing when all went well.
  [[nodiscard]] std::optional<std::string> Open(const std::string& path);
  // Unmaps the file, unless somebody else opened it too. Harmless when nothing is open.
  void Close();
  const EntryPoints& entry_points() const { return entry_points_; }

 private:
  void* handle_ = nullptr;  // owned: what dlopen gave
  EntryPoints entry_points_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_MODULE_LIBRARY_H_
