// mpbp-connector: the program that a browser starts beside itself, for the extension, so that pages
// reach the engine.
#include <malloc.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "base/threadmanager.h"
#include "connector/connector.h"
#include "connector/registration.h"
#include "connector/standardpipes.h"
#include "plugin/allowlist.h"
#include "plugin/mpbp/common/version.h"
#include "plugin/pluginutils.h"

namespace mpbp {
namespace {

constexpr char kLogTag[] = "pluginppapi";
constexpr char kLogFileName[] = "mpbpconnector.log";

constexpr int kUsageStatus = 2;

// What is larger goes back to the system when it is freed; by itself the threshold would follow the
// largest text.
constexpr int kLargeBlock = 128 << 10;

constexpr char kUsage[] =
    "usage: mpbp-connector --manifest chromium|firefox [PROGRAM]\n"
    "       mpbp-connector --register [DIR] | --unregister [DIR]\n"
    "       mpbp-connector --version | --help\n";

constexpr char kAbout[] =
    "mpbp-connector links pages to the Murmel Parl voice and video engine. A browser with the\n"
    "extension starts it, and talks with it over its standard input and output.\n"
    "\n"
    "  --manifest KIND [PROGRAM]\n"
    "                      prints the host manifest for browsers of the kind chromium or firefox;\n"
    "                      PROGRAM is where the connector will be installed, an absolute path, by\n"
    "                      default where it is\n"
    "  --register [DIR]    writes the manifests for this user's Chromium, Chrome and Firefox, or\n"
    "                      DIR/chromium/ and DIR/firefox/\n"
    "  --unregister [DIR]  takes them away\n"
    "  --version           prints the version\n"
    "  --help              prints this\n"
    "\n";

// This program's path, as the system knows it; nothing when it cannot be told.
std::optional<std::string> ProgramPath() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  if (length <= 0 || length == static_cast<ssize_t>(sizeof(path))) return std::nullopt;
  return std::string(path, static_cast<size_t>(length));
}

// The browser's program, until its input ends.
int Serve() {
  signal(SIGPIPE, SIG_IGN);
  mallopt(M_MMAP_THRESHOLD, kLargeBlock);
  mallopt(M_TRIM_THRESHOLD, kLargeBlock);
  SetupPluginLogging(kLogTag, kLogFileName, PluginVersion(), LogPathMeans::FOLDER_OF);
  // Standard error is the browser's own.
  LogMessage::LogToDebug(LS_WARNING);
  SetRequireSecureStandardHosts(true);
  LOG(LS_INFO) << "mpbp-connector " << PluginVersion();
  PhysicalSocketServer server;
  Thread thread(&server);
  ThreadManager::Instance().SetCurrentThread(&thread);
  bool well = false;
  {
    Connector connector(ClientChannel::Create);
    StandardPipes pipes(&server, &connector);
    if (pipes.Open()) {
      thread.ProcessMessages(kForever);
      well = pipes.ended_well();
    } else {
      LOG_ERR(LS_ERROR) << "The standard streams cannot be used";
    }
  }
  LOG(LS_INFO) << "The browser's side has ended.";
  ReleasePluginLog();
  return well ? 0 : 1;
}

int PrintManifest(std::string_view kind, const std::string& program) {
  const bool chromium = kind == "chromium";
  if ((!chromium && kind != "firefox") || !program.starts_with('/')) {
    fputs(kUsage, stderr);
    return kUsageStatus;
  }
  const BrowserKind browser = chromium ? BrowserKind::CHROMIUM : BrowserKind::FIREFOX;
  fputs(HostManifest(browser, program).c_str(), stdout);
  return 0;
}

int ChangeRegistration(bool add, const std::optional<std::string>& top,
                       const std::string& program) {
  const auto folders = ManifestFolders(top);
  if (!folders) {
    fputs("mpbp-connector: HOME says no folder\n", stderr);
    return 1;
  }
  return (add ? Register : Unregister)(*folders, program) ? 0 : 1;
}

int Run(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const std::optional<std::string> program = ProgramPath();
  if (!program) {
    fputs("mpbp-connector: its own path cannot be told\n", stderr);
    return 1;
  }
  if (command == "--manifest" && (argc == 3 || argc == 4)) {
    return PrintManifest(argv[2], argc == 4 ? argv[3] : *program);
  }
  if ((command == "--register" || command == "--unregister") && argc <= 3) {
    const auto top = argc == 3 ? std::optional<std::string>(argv[2]) : std::nullopt;
    return ChangeRegistration(command == "--register", top, *program);
  }
  if (command == "--version" && argc == 2) {
    printf("%s\n", PluginVersion().c_str());
    return 0;
  }
  if (command == "--help" && argc == 2) {
    printf("%s%s", kAbout, kUsage);
    return 0;
  }
  // Browsers pass words of their own: who asks, and where the manifest is.
  if (command.starts_with("--") && !command.starts_with("--parent-window")) {
    fputs(kUsage, stderr);
    return kUsageStatus;
  }
  if (isatty(STDIN_FILENO)) {
    fprintf(stderr, "%s%s", kAbout, kUsage);
    return kUsageStatus;
  }
  return Serve();
}

}  // namespace
}  // namespace mpbp

int main(int argc, char** argv) { return mpbp::Run(argc, argv); }
