#include "doctor/privatefolder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/filesystem.h"
#include "doctor/files.h"
#include "portfileutils.h"

namespace mpbp::doctor {
namespace {

// What programs look for files of the user by.
constexpr const char* kFolderVariables[] = {"HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME",
                                            "XDG_DATA_HOME", "XDG_STATE_HOME"};

bool CopyOptions(const Setup& setup, const std::string& path) {
  OptionsFile copy(path);
  for (const char* const name : {"install_dir", "plugin_enable_corp_host"}) {
    const std::string value = setup.Option(name);
    if (!value.empty() && !copy.SetStringValue(name, value)) return false;
  }
  return copy.Save();
}

}  // namespace

PrivateFolder::~PrivateFolder() {
  if (path_.empty()) return;
  std::error_code ignored;  // there is nobody to tell
  std::filesystem::remove_all(path_, ignored);
}

bool PrivateFolder::Make(const Setup& setup) {
  if (!path_.empty() || !error_.empty()) return error_.empty();
  Pathname folder;
  static_cast<void>(Filesystem::GetTemporaryFolder(&folder, false, ""));
  std::string path = folder.folder() + "mpbp-doctor-XXXXXX";
  if (!mkdtemp(path.data())) {
    error_ = "no temporary folder can be made in " + folder.folder() + ": " + ErrorText(errno);
    return false;
  }
  std::error_code error;  // then it stays as it is
  path_ = std::filesystem::absolute(path, error).string() + "/";
  for (const char* const name : kFolderVariables) setenv(name, path_.c_str(), 1);
  Pathname data;
  if (!Filesystem::GetAppDataFolder(&data, true) ||
      !CopyOptions(setup, data.folder() + kOptionsName)) {
    error_ = "the temporary folder " + path_ + " cannot be filled";
    return false;
  }
  return true;
}

std::string PrivateFolder::port_file() const {
  Pathname folder;
  if (!Filesystem::FindAppDataFolder(&folder, true)) return {};
  return folder.folder() + kPluginPortFileName;
}

}  // namespace mpbp::doctor
