// browsers: the manifests by which Chromium, Chrome and Firefox find the connector.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "deployment.h"
#include "doctor/checks.h"
#include "doctor/files.h"
#include "jsontext.h"

namespace mpbp::doctor {
namespace {

// The name that the extension asks its browser for.
constexpr char kNativeHostName[] = "example.murmel.parl";
constexpr size_t kMaxManifest = 65536;

// Where a browser's programs and manifests are. Paths below the root; those of the user begin with
// '~', or with '$' for the configuration folder. The user's manifest comes first, as the browsers
// have it (docs/todays-browsers.md).
struct Browser {
  const char* name;
  std::vector<const char*> programs;
  std::vector<const char*> sandboxes;  // of snap and flatpak
  const char* user_folder;
  const char* system_folder;
  bool gecko;
};

const std::vector<Browser>& Browsers() {
  static const std::vector<Browser> browsers = {
      {"Chromium",
       {"usr/bin/chromium", "usr/bin/chromium-browser"},
       {"snap/bin/chromium", "var/lib/flatpak/app/org.chromium.Chromium",
        "~.local/share/flatpak/app/org.chromium.Chromium"},
       "$chromium/NativeMessagingHosts/",
       "etc/chromium/native-messaging-hosts/",
       false},
      {"Chrome",
       {"usr/bin/google-chrome", "usr/bin/google-chrome-stable", "opt/google/chrome/chrome"},
       {"var/lib/flatpak/app/com.google.Chrome", "~.local/share/flatpak/app/com.google.Chrome"},
       "$google-chrome/NativeMessagingHosts/",
       "etc/opt/chrome/native-messaging-hosts/",
       false},
      {"Firefox",
       {"usr/bin/firefox", "usr/bin/firefox-esr"},
       {"snap/bin/firefox", "var/lib/flatpak/app/org.mozilla.firefox",
        "~.local/share/flatpak/app/org.mozilla.firefox"},
       "~.mozilla/native-messaging-hosts/",
       "usr/lib/mozilla/native-messaging-hosts/",
       true},
  };
  return browsers;
}

std::string PathOf(const Setup& setup, const std::string& path) {
  if (path[0] != '~' && path[0] != '$') return setup.root + path;
  std::string folder = Pathname(setup.home, "").folder();
  // Beside the plug-in's own folder, whose name is the last of its path.
  if (path[0] == '$') {
    if (!setup.folder.starts_with('/')) return folder + ".config/" + path.substr(1);
    folder = Pathname(setup.folder.substr(0, setup.folder.size() - 1)).folder();
  }
  return folder + path.substr(1);
}

bool AnyIsThere(const Setup& setup, const std::vector<const char*>& paths) {
  return std::any_of(paths.begin(), paths.end(),
                     [&setup](const char* path) { return MayAccess(PathOf(setup, path), F_OK); });
}

std::string RealPath(const std::string& path) {
  char real[PATH_MAX];
  return realpath(path.c_str(), real) ? real : path;
}

bool ListsExtension(const Json::Value& manifest, bool gecko) {
  const Json::Value& list = MemberOf(manifest, gecko ? "allowed_extensions" : "allowed_origins");
  const std::string wanted = gecko
                                 ? std::string(kGeckoExtensionId)
                                 : "chrome-extension://" + std::string(kChromiumExtensionId) + "/";
  for (unsigned i = 0; list.isArray() && i < list.size(); ++i) {
    if (AsString(ElementAt(list, i)) == wanted) return true;
  }
  return false;
}

class BrowserCheck {
 public:
  BrowserCheck(const Setup& setup, const Browser& browser, CheckResult* result)
      : setup_(setup), browser_(browser), result_(*result) {}

  void Run() {
    for (const char* const folder : {browser_.user_folder, browser_.system_folder}) {
      const std::string path = PathOf(setup_, folder) + kNativeHostName + ".json";
      struct stat status = {};
      if (lstat(path.c_str(), &status) == 0) {
        return CheckManifest(path, folder == browser_.user_folder);
      }
    }
    Fault("has no manifest of the connector, and so does not find it",
          "mpbp-connector --register, or install the plug-in's package.");
  }

 private:
  void CheckManifest(const std::string& path, bool of_user) {
    const std::string again =
        of_user
            ? "mpbp-connector --register writes the manifest anew."
            : "Install the plug-in's package again, or mpbp-connector --register for you alone.";
    const auto manifest = ParseJson(ReadFileText(path, kMaxManifest));
    if (!manifest || AsString(MemberOf(*manifest, "name")) != kNativeHostName ||
        AsString(MemberOf(*manifest, "type")) != "stdio") {
      return Fault("has a manifest that is none of the connector: " + path,
                   "Move it away. " + again);
    }
    const std::string program = AsString(MemberOf(*manifest, "path")).value_or("");
    if (!program.starts_with('/') || !Filesystem::IsFile(program)) {
      return Fault(
          "has a manifest with the path of a program that is not there, " + program + ": " + path,
          again);
    }
    if (!MayAccess(program, X_OK)) {
      return Fault("has a manifest whose program may not be run: " + program,
                   "chmod a+x " + program);
    }
    if (!ListsExtension(*manifest, browser_.gecko)) {
      return Fault("has a manifest that does not list the extension " +
                       std::string(browser_.gecko ? kGeckoExtensionId : kChromiumExtensionId) +
                       ": " + path,
                   again);
    }
    if (!setup_.connector.empty() && RealPath(program) != RealPath(setup_.connector)) {
      return result_.AddWarning(std::string(browser_.name) + " starts another connector, " +
                                    program + ", than " + setup_.connector,
                                "If that is not wanted: " + setup_.connector + " --register");
    }
    result_.AddOk(std::string(browser_.name) + " finds " + program);
  }

  void Fault(const std::string& what, const std::string& remedy) {
    result_.AddFault(std::string(browser_.name) + " " + what, remedy);
  }

  const Setup& setup_;
  const Browser& browser_;
  CheckResult& result_;
};

}  // namespace

CheckResult CheckBrowsers(const Setup& setup) {
  CheckResult result;
  for (const Browser& browser : Browsers()) {
    const bool there = AnyIsThere(setup, browser.programs);
    if (there) BrowserCheck(setup, browser, &result).Run();
    if (AnyIsThere(setup, browser.sandboxes)) {
      result.AddWarning(std::string(browser.name) +
                            " is there as a snap or flatpak, which does not start programs of the "
                            "system just so",
                        "Use the browser of the distribution or of its maker.");
    }
  }
  if (result.message.empty()) return Skipped("no Chromium, Chrome or Firefox was found");
  return result;
}

}  // namespace mpbp::doctor
