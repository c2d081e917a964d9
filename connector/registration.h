// The manifests by which browsers find the connector.
#ifndef MPBP_CONNECTOR_REGISTRATION_H_
#define MPBP_CONNECTOR_REGISTRATION_H_

#include <optional>
#include <string>
#include <vector>

namespace mpbp {

// The name that the extension asks its browser for.
inline constexpr char kNativeHostName[] = "example.murmel.parl";

enum class BrowserKind { CHROMIUM, FIREFOX };

// The manifest for a connector at `program`, an absolute path; ends with a line break.
std::string HostManifest(BrowserKind kind, const std::string& program);

// A folder where browsers of a kind look.
struct ManifestFolder {
  std::string browser;  // for people
  BrowserKind kind;
  std::string folder;  // ends with '/'
};

// Those of this user's Chromium, Chrome and Firefox; with `top` "chromium/" and "firefox/" below
// it. Nothing when the user's folders are not known.
std::optional<std::vector<ManifestFolder>> ManifestFolders(const std::optional<std::string>& top);

// Each writes what it did, a line a folder, to standard output, and what it could not do to
// standard error; false when there was such a thing. A file that is no manifest of this name is
// left alone, and so is, by Unregister, that of a connector elsewhere.
[[nodiscard]] bool Register(const std::vector<ManifestFolder>& folders, const std::string& program);
[[nodiscard]] bool Unregister(const std::vector<ManifestFolder>& folders,
                              const std::string& program);

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_REGISTRATION_H_
