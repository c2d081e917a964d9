#include "doctor/files.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/pathname.h"

namespace mpbp::doctor {

std::string ErrorText(int error) { return strerror(error); }

std::string KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "a regular file";
    case S_IFDIR:
      return "a folder";
    case S_IFIFO:
      return "a FIFO";
    case S_IFSOCK:
      return "a socket";
    case S_IFLNK:
      return "a link";
    default:
      return "a device";
  }
}

std::string ModeText(mode_t mode) {
  char text[8];
  snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

bool MayAccess(const std::string& path, int how) {
  return faccessat(AT_FDCWD, path.c_str(), how, AT_EACCESS) == 0;
}

void AddWhetherItCanBeMade(const std::string& path, CheckResult* result) {
  // The nearest folder that is there.
  std::string folder = Pathname(path).folder();
  struct stat status = {};
  while (folder.size() > 1 && lstat(folder.c_str(), &status) != 0 && errno == ENOENT) {
    folder.pop_back();
    folder = Pathname(folder).folder();
  }
  if (folder.empty()) folder = "./";
  const std::string remedy = "Make " + Pathname(path).folder() + " yourself, writable for you.";
  struct statvfs space = {};
  if (stat(folder.c_str(), &status) != 0) {
    result->AddFault(folder + ": " + ErrorText(errno), remedy);
  } else if (!S_ISDIR(status.st_mode)) {
    result->AddFault(folder + " is " + KindOf(status.st_mode) + " and no folder", remedy);
  } else if (!MayAccess(folder, W_OK | X_OK)) {
    result->AddFault("nothing can be made in " + folder + ": " + ErrorText(errno), remedy);
  } else if (statvfs(folder.c_str(), &space) == 0 && space.f_blocks > 0 && space.f_bavail == 0) {
    result->AddFault("the disk of " + folder + " is full", "Make room on it.");
  }
}

bool AddWhetherAbsolute(const std::string& what, const std::string& path,
                        const std::string& consequence, CheckResult* result) {
  if (path.starts_with('/')) return true;
  if (path.starts_with('~')) {
    result->AddFault(what + " begins with a tilde (" + path + "), which nobody replaces",
                     "Write the home folder's path in full.");
  } else {
    result->AddFault(what + " is relative (" + path + "): " + consequence,
                     "Write a path that begins with a slash.");
  }
  return false;
}

std::string DurationText(long seconds) {
  if (seconds < 60) return std::to_string(seconds) + " s";
  if (seconds < 3600) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds / 3600) + " h " + std::to_string(seconds / 60 % 60) + " min";
}

}  // namespace mpbp::doctor
