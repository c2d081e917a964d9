#include "enginecheck/privatefolder.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "portfileutils.h"

namespace mpbp::enginecheck {
namespace {

constexpr char kAppFolder[] = "/config/murmel-murmelparlplugin/";
constexpr size_t kMostRead = 100;

// What lies in the folder: the variables that name a user's folders, and where they lead here.
constexpr struct {
  const char* variable;
  const char* folder;
} kFolders[] = {
    {"HOME", "/home"},           {"DOTDIR", "/home"},
    {"TMPDIR", "/tmp"},          {"XDG_CONFIG_HOME", "/config"},
    {"XDG_CACHE_HOME", "/home"}, {"XDG_DATA_HOME", "/home"},
    {"XDG_STATE_HOME", "/home"}, {"XDG_RUNTIME_DIR", "/run"},
};

}  // namespace

PrivateFolder::PrivateFolder() {
  std::error_code error;
  std::string path = std::filesystem::temp_directory_path(error).string() + "/mpbp-engine-XXXXXX";
  if (error || !mkdtemp(path.data())) return;
  path_ = path;
  bool made = Filesystem::CreateFolder(path_ + kAppFolder, 0700);
  for (const auto& entry : kFolders) {
    made = made && Filesystem::CreateFolder(path_ + entry.folder + "/", 0700);
  }
  if (!made) Remove();
}

PrivateFolder::~PrivateFolder() { Remove(); }

void PrivateFolder::Remove() {
  std::error_code error;  // what cannot be removed stays
  if (!path_.empty()) std::filesystem::remove_all(path_, error);
  path_.clear();
}

std::string PrivateFolder::PortFile() const { return path_ + kAppFolder + kPluginPortFileName; }

std::vector<std::string> PrivateFolder::Environment() const {
  std::vector<std::string> environment;
  for (const auto& entry : kFolders) {
    environment.push_back(std::string(entry.variable) + "=" + path_ + entry.folder);
  }
  return environment;
}

std::string PrivateFolder::ReadPortFile() const { return ReadFileText(PortFile(), kMostRead); }

bool PrivateFolder::ReplacePortFile(const std::string& content) const {
  const std::string other = PortFile() + ".other";
  FileStream file;
  return Filesystem::CreatePrivateFile(other) && file.Open(other, "wb", nullptr) &&
         file.WriteAll(content, nullptr, nullptr) == StreamResult::SR_SUCCESS && file.Flush() &&
         rename(other.c_str(), PortFile().c_str()) == 0;
}

}  // namespace mpbp::enginecheck
