#include "connector/registration.h"

#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "deployment.h"
#include "jsontext.h"

namespace mpbp {
namespace {

constexpr char kDescription[] = "Links pages to the Murmel Parl voice and video engine";
constexpr size_t kMaxManifest = 65536;

// An absolute path in the environment; empty when there is none.
std::string FolderFromEnvironment(const char* name) {
  const char* const value = getenv(name);
  if (!value || value[0] != '/') return {};
  return Pathname(value, "").folder();
}

// What stands where a manifest goes.
struct Existing {
  bool there = false;
  bool ours = false;    // a manifest of the connector's name
  std::string program;  // that it names
};

Existing Look(const std::string& path) {
  struct stat status = {};
  Existing existing;
  existing.there = lstat(path.c_str(), &status) == 0;
  if (!existing.there || !S_ISREG(status.st_mode)) return existing;
  const auto manifest = ParseJson(ReadFileText(path, kMaxManifest));
  if (!manifest) return existing;
  existing.ours = AsString(MemberOf(*manifest, "name")) == kNativeHostName;
  existing.program = AsString(MemberOf(*manifest, "path")).value_or("");
  return existing;
}

bool Complain(const std::string& path, const char* what) {
  fprintf(stderr, "mpbp-connector: %s: %s\n", path.c_str(), what);
  return false;
}

// In a new file that takes the old one's place, so that no browser reads half a manifest.
bool WriteManifest(const ManifestFolder& folder, const std::string& path,
                   const std::string& manifest) {
  const std::string temporary = path + ".new";
  if (!Filesystem::CreateFolder(folder.folder, 0755)) return Complain(path, strerror(errno));
  FileStream file;
  int error = 0;
  size_t written = 0;
  const bool done =
      file.Open(temporary, "w", &error) &&
      file.Write(manifest.data(), manifest.size(), &written, &error) == StreamResult::SR_SUCCESS &&
      written == manifest.size() && file.Flush(&error) &&
      rename(temporary.c_str(), path.c_str()) == 0;
  if (done) return true;
  const int system_error = error != 0 ? error : errno;
  unlink(temporary.c_str());
  return Complain(path, strerror(system_error));
}

std::string ManifestPath(const ManifestFolder& folder) {
  return folder.folder + kNativeHostName + ".json";
}

}  // namespace

std::string HostManifest(BrowserKind kind, const std::string& program) {
  Json::Value manifest(Json::objectValue);
  manifest["name"] = kNativeHostName;
  manifest["description"] = kDescription;
  manifest["path"] = program;
  manifest["type"] = "stdio";
  if (kind == BrowserKind::CHROMIUM) {
    manifest["allowed_origins"].append("chrome-extension://" + std::string(kChromiumExtensionId) +
                                       "/");
  } else {
    manifest["allowed_extensions"].append(kGeckoExtensionId);
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  writer["emitUTF8"] = true;
  return Json::writeString(writer, manifest) + "\n";
}

std::optional<std::vector<ManifestFolder>> ManifestFolders(const std::optional<std::string>& top) {
  if (top) {
    const std::string folder = Pathname(*top, "").folder();
    return std::vector<ManifestFolder>{
        {"Chromium", BrowserKind::CHROMIUM, folder + "chromium/"},
        {"Firefox", BrowserKind::FIREFOX, folder + "firefox/"},
    };
  }
  const std::string home = FolderFromEnvironment("HOME");
  if (home.empty()) return std::nullopt;
  std::string config = FolderFromEnvironment("XDG_CONFIG_HOME");
  if (config.empty()) config = home + ".config/";
  return std::vector<ManifestFolder>{
      {"Chromium", BrowserKind::CHROMIUM, config + "chromium/NativeMessagingHosts/"},
      {"Chrome", BrowserKind::CHROMIUM, config + "google-chrome/NativeMessagingHosts/"},
      {"Firefox", BrowserKind::FIREFOX, home + ".mozilla/native-messaging-hosts/"},
  };
}

bool Register(const std::vector<ManifestFolder>& folders, const std::string& program) {
  bool all = true;
  for (const ManifestFolder& folder : folders) {
    const std::string path = ManifestPath(folder);
    const Existing existing = Look(path);
    if (existing.there && !existing.ours) {
      all = Complain(path, "something else stands there, which was left alone");
    } else if (WriteManifest(folder, path, HostManifest(folder.kind, program))) {
      printf("%s: %s %s\n", folder.browser.c_str(), existing.there ? "replaced" : "wrote",
             path.c_str());
    } else {
      all = false;
    }
  }
  return all;
}

bool Unregister(const std::vector<ManifestFolder>& folders, const std::string& program) {
  bool all = true;
  for (const ManifestFolder& folder : folders) {
    const std::string path = ManifestPath(folder);
    const Existing existing = Look(path);
    if (!existing.there) {
      printf("%s: not registered\n", folder.browser.c_str());
    } else if (!existing.ours) {
      all = Complain(path, "something else stands there, which was left alone");
    } else if (existing.program != program) {
      printf("%s: left %s, which is for %s\n", folder.browser.c_str(), path.c_str(),
             existing.program.c_str());
    } else if (unlink(path.c_str()) == 0) {
      printf("%s: removed %s\n", folder.browser.c_str(), path.c_str());
    } else {
      all = Complain(path, strerror(errno));
    }
  }
  return all;
}

}  // namespace mpbp
