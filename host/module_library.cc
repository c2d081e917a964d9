#include "host/module_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace mpbp::host {
namespace {

template <typename F>
bool Resolve(void* handle, const char* name, F*& function) {
  function = reinterpret_cast<F*>(dlsym(handle, name));
  return function != nullptr;
}

}  // namespace

std::optional<std::string> ModuleLibrary::Open(const std::string& path) {
  Close();
  // Without this, a missing file is searched for in the system's library folders.
  if (access(path.c_str(), R_OK) != 0) return "cannot read " + path + ": " + std::strerror(errno);
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* reason = dlerror();
    return "cannot load " + path + ": " + (reason != nullptr ? reason : "no reason given");
  }
  const char* missing = nullptr;
  if (!Resolve(handle_, "PPP_InitializeModule", entry_points_.initialize)) {
    missing = "PPP_InitializeModule";
  } else if (!Resolve(handle_, "PPP_GetInterface", entry_points_.get_interface)) {
    missing = "PPP_GetInterface";
  } else if (!Resolve(handle_, "PPP_ShutdownModule", entry_points_.shutdown)) {
    missing = "PPP_ShutdownModule";
  }
  if (missing == nullptr) return std::nullopt;
  Close();
  return path + " has no entry point " + missing;
}

void ModuleLibrary::Close() {
  if (handle_ != nullptr) dlclose(handle_);
  handle_ = nullptr;
  entry_points_ = {};
}

}  // namespace mpbp::host
