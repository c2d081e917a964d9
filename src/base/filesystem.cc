#include "base/filesystem.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/criticalsection.h"
#include "base/logging.h"
#include "base/staticobject.h"
#include "base/stringutils.h"
#include "base/uniquefd.h"

namespace mpbp {
namespace {

constexpr size_t kAppPathSize = 255;

struct Names {
  CriticalSection lock;
  std::string organization MPBP_GUARDED_BY(lock);
  std::string application MPBP_GUARDED_BY(lock);
};

Names& TheNames() {
  static StaticObject<Names> names;
  return *names;
}

// Lower-case, without blanks.
std::string AppDataLeaf() {
  Names& names = TheNames();
  CritScope scope(names.lock);
  std::string leaf;
  for (const char c : names.organization + "-" + names.application) {
    if (c != ' ') leaf += ToLowerAscii(c);
  }
  return leaf;
}

// Null when the variable is not set or empty. The value is valid until the environment changes.
const char* Environment(const char* name) {
  const char* value = getenv(name);
  return value && *value != '\0' ? value : nullptr;
}

// Empty when the password database has none.
std::string HomeFromPasswordDatabase() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
  return found->pw_dir ? found->pw_dir : "";
}

// Empty when there is none.
std::string HomeFolder() {
  for (const char* variable : {"HOME", "DOTDIR"}) {
    if (const char* value = Environment(variable)) return value;
  }
  return HomeFromPasswordDatabase();
}

bool GetUserBaseFolder(Pathname* path) {
  if (const char* config = Environment("XDG_CONFIG_HOME")) {
    path->SetFolder(config);
    return true;
  }
  const std::string home = HomeFolder();
  if (home.empty()) return false;
  path->SetFolder(home);
  path->AppendFolder(".config");
  return true;
}

}  // namespace

void Filesystem::SetOrganizationName(std::string_view name) {
  CritScope scope(TheNames().lock);
  TheNames().organization = name;
}

void Filesystem::SetApplicationName(std::string_view name) {
  CritScope scope(TheNames().lock);
  TheNames().application = name;
}

bool Filesystem::FindAppDataFolder(Pathname* path, bool per_user) {
  Pathname folder;
  if (!per_user) {
    folder.SetFolder("/var/cache/");
  } else if (!GetUserBaseFolder(&folder)) {
    LOG(LS_WARNING) << "No home folder is known: neither XDG_CONFIG_HOME, HOME nor DOTDIR is set, "
                       "and the password database has none";
    return false;
  }
  folder.AppendFolder(AppDataLeaf());
  *path = folder;
  return true;
}

bool Filesystem::GetAppDataFolder(Pathname* path, bool per_user) {
  Pathname folder;
  if (!FindAppDataFolder(&folder, per_user)) return false;
  int error = 0;
  if (!CreateFolder(folder.folder(), 0700, &error)) {
    LOG_ERR_EX(LS_WARNING, error) << "The configuration folder cannot be made, path="
                                  << folder.folder();
    return false;
  }
  // A folder that was there before keeps the mode it had.
  if (chmod(folder.folder().c_str(), 0700) != 0) {
    LOG_ERR(LS_ERROR) << "Can't set mode on " << folder.folder();
    return false;
  }
  *path = folder;
  return true;
}

bool Filesystem::GetTemporaryFolder(Pathname* path, bool create, std::string_view append) {
  const char* base = Environment("TMPDIR");
  if (!base) base = Environment("TMP");
  path->SetPathname("");
  path->SetFolder(base ? base : "/tmp");
  if (!append.empty()) path->AppendFolder(append);
  return !create || CreateFolder(path->folder(), 0700);
}

std::string Filesystem::TempFilename(const Pathname& folder, std::string_view prefix) {
  std::string name = folder.folder();
  if (!name.empty()) name.pop_back();
  name.append("/").append(prefix).append("XXXXXX");
  const UniqueFd fd(mkostemp(name.data(), O_CLOEXEC));
  return fd ? name : std::string();
}

bool Filesystem::IsTemporaryPath(std::string_view path) {
  return path.starts_with("/tmp/") || path.starts_with("/var/tmp/");
}

bool Filesystem::CreateFolder(const std::string& folder, mode_t mode, int* error) {
  const auto fail = [error](int reason) {
    if (error) *error = reason;
    return false;
  };
  if (folder.empty() || folder.back() != '/') return fail(EINVAL);
  struct stat status = {};
  if (stat(folder.c_str(), &status) == 0) return S_ISDIR(status.st_mode) || fail(ENOTDIR);
  if (errno != ENOENT) return fail(errno);
  // Ends: "/" exists, and a path longer than the system takes fails above with ENAMETOOLONG.
  const size_t parent_end = folder.find_last_of('/', folder.size() - 2);
  if (folder.size() > 1 && parent_end != std::string::npos &&
      !CreateFolder(folder.substr(0, parent_end + 1), mode, error)) {
    return false;
  }
  LOG(LS_INFO) << "Creating folder: " << folder;
  if (mkdir(folder.c_str(), mode) == 0) return true;
  // The engine, which uses the same folders, may have been faster.
  const int reason = errno;
  return (reason == EEXIST && IsFolder(folder)) || fail(reason);
}

bool Filesystem::CreatePrivateFile(const std::string& path) {
  const UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd) LOG_ERR(LS_ERROR) << "open() failed.";
  return static_cast<bool>(fd);
}

bool Filesystem::DeleteFile(const std::string& path, int* error) {
  LOG(LS_INFO) << "Deleting file:" << path;
  if (unlink(path.c_str()) == 0) return true;
  if (error) *error = errno;
  return false;
}

bool Filesystem::IsFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool Filesystem::IsFolder(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool Filesystem::GetAppPathname(Pathname* path) {
  char buffer[kAppPathSize];
  const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer));
  // A full buffer may hold a path that was cut off.
  if (length <= 0 || static_cast<size_t>(length) == sizeof(buffer)) return false;
  path->SetPathname(std::string_view(buffer, static_cast<size_t>(length)));
  return true;
}

}  // namespace mpbp
