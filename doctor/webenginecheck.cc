// webengine: Qt's browser engine, which still takes modules before version 6.8.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/directoryiterator.h"
#include "base/filesystem.h"
#include "doctor/checks.h"
#include "doctor/files.h"

namespace mpbp::doctor {
namespace {

struct Version {
  int major = 0;
  int minor = 0;
};

// The first that no longer has the interface of modules.
constexpr Version kFirstWithout = {6, 8};

std::vector<std::string> LibraryFolders(const Setup& setup) {
  const std::string lib = setup.root + "usr/lib/";
  std::vector<std::string> folders = {lib, setup.root + "usr/lib64/"};
  DirectoryIterator entries;
  if (!entries.Iterate(lib)) return folders;
  do {
    if (entries.Name().find("-linux-gnu") != std::string::npos) {
      folders.push_back(lib + entries.Name() + "/");
    }
  } while (entries.Next());
  return folders;
}

// The helper process, beside which the library is of no use.
bool HasProcess(const Setup& setup, const std::string& folder, int major) {
  const std::string qt = "qt" + std::to_string(major);
  for (const std::string& place : {folder + qt, setup.root + "usr/lib/" + qt}) {
    for (const char* const below : {"/libexec/", "/bin/", "/"}) {
      if (MayAccess(place + below + "QtWebEngineProcess", X_OK)) return true;
    }
  }
  return false;
}

struct Found {
  bool fitting = false;
  std::vector<std::string> too_new;
};

void AddLibrary(const Setup& setup, const std::string& folder, int major, Found* found,
                CheckResult* result) {
  const std::string number = std::to_string(major);
  const std::string path = folder + "libQt" + number + "WebEngineCore.so." + number;
  char real[PATH_MAX];
  if (!realpath(path.c_str(), real)) return;
  const std::string file = Pathname(real).filename();
  Version version{major, 0};
  const size_t so = file.find(".so.");
  if (so == std::string::npos ||
      sscanf(file.c_str() + so, ".so.%d.%d", &version.major, &version.minor) != 2) {
    return result->AddWarning(path + " does not say its version", "Install its package again.");
  }
  const std::string name = "Qt WebEngine " + file.substr(so + 4);
  if (!HasProcess(setup, folder, major)) {
    result->AddFault(name + " is without QtWebEngineProcess", "Install its package again.");
  } else if (version.major > kFirstWithout.major ||
             (version.major == kFirstWithout.major && version.minor >= kFirstWithout.minor)) {
    found->too_new.push_back(name);
  } else {
    found->fitting = true;
    result->AddOk(name + " takes the module");
  }
}

}  // namespace

CheckResult CheckWebEngine(const Setup& setup) {
  CheckResult result;
  Found found;
  for (const int major : {5, 6}) {
    for (const std::string& folder : LibraryFolders(setup)) {
      AddLibrary(setup, folder, major, &found, &result);
    }
  }
  for (const std::string& name : found.too_new) {
    const std::string message = name + " takes no modules any more";
    if (found.fitting) {
      result.AddOk(message);
    } else {
      result.AddWarning(message,
                        "Use Qt 5 or a Qt 6 before 6.8; or today's browsers with the extension.");
    }
  }
  if (result.message.empty()) return Skipped("no Qt WebEngine was found");
  if (setup.module.empty()) result.AddOk("there is no module to take (module)");
  return result;
}

}  // namespace mpbp::doctor
