// folder, install-dir.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "doctor/checks.h"
#include "doctor/files.h"
#include "engineprocesses.h"

namespace mpbp::doctor {
namespace {

constexpr mode_t kFolderMode = 0700;

std::string ParentOf(const std::string& folder) { return folder.substr(0, folder.size() - 1); }

}  // namespace

CheckResult CheckFolder(const Setup& setup) {
  if (setup.folder.empty()) {
    return Fault("no home folder is known", "Set HOME, or XDG_CONFIG_HOME, for the browser.");
  }
  CheckResult result;
  if (!AddWhetherAbsolute("the configuration folder", setup.folder,
                          "the engine, which runs in /, looks in another one", &result))
    return result;
  const std::string path = ParentOf(setup.folder);
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
    AddWhetherItCanBeMade(path, &result);
    if (result.status == CheckStatus::FAULT) return result;
    return Ok(path + " does not exist yet; the plug-in makes it");
  }
  if (stat(path.c_str(), &status) != 0) {
    return Fault(path + ": " + ErrorText(errno), "Make it a folder of yours, or take it away.");
  }
  if (!S_ISDIR(status.st_mode)) {
    return Fault(path + " is " + KindOf(status.st_mode) + " and no folder",
                 "Move it away; the plug-in makes the folder.");
  }
  const uid_t user = geteuid();
  if (status.st_uid != user) {
    return Fault(path + " belongs to user id " + std::to_string(status.st_uid) + ", not to you (" +
                     std::to_string(user) + "): its mode cannot be set",
                 "As root: chown -R " + std::to_string(user) + " " + path);
  }
  if ((status.st_mode & 07777) != kFolderMode) {
    result.AddWarning(path + " has mode " + ModeText(status.st_mode) +
                          " and should have 0700; the plug-in sets it at its next use",
                      "chmod 0700 " + path);
  }
  AddWhetherItCanBeMade(setup.folder + "a file", &result);
  if (result.status == CheckStatus::SKIPPED) result.AddOk(path + ", mode 0700");
  return result;
}

CheckResult CheckInstallDir(const Setup& setup) {
  const std::string& path = setup.engine_program;
  CheckResult result;
  if (!AddWhetherAbsolute("install_dir", path, "it is looked for in /", &result)) return result;
  const std::string set_it =
      "Install the engine there, or name its folder: a line install_dir=/its/folder in " +
      (setup.folder.empty() ? std::string("the options file") : setup.folder + kOptionsName) + ".";
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    return Fault("the engine's program " + path + ": " + ErrorText(errno), set_it);
  }
  if (!S_ISREG(status.st_mode)) {
    return Fault("the engine's program " + path + " is " + KindOf(status.st_mode), set_it);
  }
  if (!MayAccess(path, X_OK)) {
    return Fault("the engine's program " + path + " may not be run, mode " +
                     ModeText(status.st_mode) + ": " + ErrorText(errno),
                 "chmod a+x " + path + ", and see that its disk is not mounted noexec.");
  }
  return Ok(path);
}

}  // namespace mpbp::doctor
