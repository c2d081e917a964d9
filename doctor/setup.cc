#include "doctor/setup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "base/directoryiterator.h"
#include "base/filesystem.h"
#include "engineprocesses.h"
#include "logutility.h"
#include "plugin/pluginutils.h"

namespace mpbp::doctor {
namespace {

constexpr char kTimestamp[] = "%TIMESTAMP%";

std::string Environment(const char* name) {
  const char* const value = getenv(name);
  return value ? value : "";
}

std::string WithSlash(const std::string& folder) { return Pathname(folder, "").folder(); }

// A file in the folder of this program, where the build and an installation put all of them; empty
// when it is not there.
std::string FindBeside(const char* name) {
  char own[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", own, sizeof(own));
  if (length <= 0 || length == static_cast<ssize_t>(sizeof(own))) return {};
  Pathname path(std::string_view(own, static_cast<size_t>(length)));
  path.SetFilename(name);
  return Filesystem::IsFile(path.pathname()) ? path.pathname() : std::string();
}

// The newest file that the path names with any time in it; the path as of now when there is none.
std::string NewestLog(const std::string& pattern) {
  const Pathname path(pattern);
  const size_t mark = path.filename().find(kTimestamp);
  if (mark == std::string::npos) return ReplaceTimestamp(pattern);
  const std::string before = path.filename().substr(0, mark);
  std::string newest = ReplaceTimestamp(pattern);
  time_t newest_time = 0;
  DirectoryIterator entries;
  if (!entries.Iterate(path.folder())) return newest;
  do {
    const std::string file = path.folder() + entries.Name();
    struct stat status = {};
    if (entries.Name().starts_with(before) && stat(file.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode) && status.st_mtime > newest_time) {
      newest_time = status.st_mtime;
      newest = file;
    }
  } while (entries.Next());
  return newest;
}

}  // namespace

std::string Setup::Option(const std::string& name) const {
  std::string value;
  return options.GetStringValue(name, &value) ? value : std::string();
}

std::string Setup::LogPath(const std::string& default_name) const {
  const std::string configured = Option("pluginppapi_log_path");
  if (configured.empty()) return folder.empty() ? std::string() : folder + default_name;
  if (default_name == kLogName) return NewestLog(configured);
  Pathname path(ReplaceTimestamp(configured));
  path.SetFilename(default_name);
  return path.pathname();
}

Setup FindSetup(const std::string& module, const std::string& connector) {
  Filesystem::SetOrganizationName("Murmel");
  Filesystem::SetApplicationName("Murmel Parl Plugin");
  Setup setup;
  setup.home = Environment("HOME");
  const std::string root = Environment(kRootVariable);
  setup.root = root.empty() ? "/" : WithSlash(root);
  Pathname folder;
  if (Filesystem::FindAppDataFolder(&folder, true)) {
    setup.folder = folder.folder();
    setup.options = OptionsFile(setup.folder + kOptionsName);
    static_cast<void>(setup.options.Load());  // the check of the options says why not
  }
  const std::string install_dir = setup.Option("install_dir");
  setup.engine_program =
      Pathname(install_dir.empty() ? kDefaultInstallDir : install_dir, kEngineName).pathname();
  setup.module = module.empty() ? FindBeside(kModuleName) : module;
  setup.connector = connector.empty() ? FindBeside(kConnectorName) : connector;
  return setup;
}

}  // namespace mpbp::doctor
