// Where things live on disk. Folders are Pathname folder parts: they end with '/'.
//
// Every operation reports failure by its result and may be called from any thread.
#ifndef MPBP_BASE_FILESYSTEM_H_
#define MPBP_BASE_FILESYSTEM_H_

#include <sys/types.h>

#include <string>
#include <string_view>

#include "base/pathname.h"

namespace mpbp {

class Filesystem {
 public:
  Filesystem() = delete;

  // The two names that the application data folder is made of.
  static void SetOrganizationName(std::string_view name);
  static void SetApplicationName(std::string_view name);

  // The application data folder, created if missing and set to mode 0700. Per user it lies in
  // XDG_CONFIG_HOME, else in ".config" of the home folder (HOME, DOTDIR, the password database);
  // otherwise in "/var/cache/". A variable that is set to nothing counts as not set.
  [[nodiscard]] static bool GetAppDataFolder(Pathname* path, bool per_user);
  // Where that is, whether or not it exists; nothing is made or changed.
  [[nodiscard]] static bool FindAppDataFolder(Pathname* path, bool per_user);
  // TMPDIR, TMP or "/tmp", with the subfolder `append` unless it is empty. With `create` the result
  // says whether the folder is there now (created with mode 0700), else it is true.
  [[nodiscard]] static bool GetTemporaryFolder(Pathname* path, bool create,
                                               std::string_view append);
  // Creates an empty file of a new name that begins with `prefix`, mode 0600, and returns its path;
  // the caller deletes the file. Empty on failure.
  [[nodiscard]] static std::string TempFilename(const Pathname& folder, std::string_view prefix);
  // Whether the path begins with "/tmp/" or "/var/tmp/".
  static bool IsTemporaryPath(std::string_view path);

  // Makes sure that the folder exists, with its parents; what it creates gets `mode` less the
  // umask. `folder` ends with '/'. False with an errno value in *error, which may be null, on
  // failure.
  [[nodiscard]] static bool CreateFolder(const std::string& folder, mode_t mode,
                                         int* error = nullptr);
  // Creates an empty file with mode 0600; an existing one, or a link in its place, is a failure.
  [[nodiscard]] static bool CreatePrivateFile(const std::string& path);
  // False with an errno value in *error, which may be null, on failure.
  [[nodiscard]] static bool DeleteFile(const std::string& path, int* error = nullptr);

  // Both follow links. IsFile means a regular file.
  static bool IsFile(const std::string& path);
  static bool IsFolder(const std::string& path);

  // The path of the running executable. One of 255 bytes or more is a failure.
  [[nodiscard]] static bool GetAppPathname(Pathname* path);
};

}  // namespace mpbp

#endif  // MPBP_BASE_FILESYSTEM_H_
