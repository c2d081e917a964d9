#include <sys/prctl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/demo/demo.h"

namespace {

constexpr char kUsage[] =
    "usage: mpbp-demo [--log | --help]\n"
    "\n"
    "Shows the plug-in and the stand-in engine at work: libmpbppapiplugin.so and the folder "
    "engine/\n"
    "are found beside this program. Ends with status 0 when every step happened. With\n"
    "MPBP_DEMO_HTTP_URL set to an http URL, the engine has that URL fetched too. --log shows what "
    "the\n"
    "plug-in logs, on standard error.\n";

// The folder this program lies in; empty when it cannot be told.
std::string ProgramFolder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  if (length <= 0 || length == static_cast<ssize_t>(sizeof(path))) return {};
  return std::filesystem::path(std::string(path, static_cast<size_t>(length))).parent_path();
}

// The command name that the system keeps of an engine.
bool EngineIsRunning() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    std::ifstream comm(entry.path() / "comm");
    std::string name;
    if (std::getline(comm, name) && name == "MurmelParlPlugi") return true;
  }
  return false;
}

int RunDemo(const std::string& folder) {
  char profile[] = "/tmp/mpbp-demo-XXXXXX";
  if (!mkdtemp(profile)) {
    perror("mpbp-demo: no temporary folder");
    return 1;
  }
  setenv("XDG_CONFIG_HOME", profile, 1);
  bool passed = false;
  {
    mpbp::host::Demo demo({folder + "/libmpbppapiplugin.so", folder + "/engine", profile});
    passed = demo.Run();
  }
  std::error_code error;
  std::filesystem::remove_all(profile, error);
  puts(passed ? "Every step happened." : "The demo failed.");
  return passed ? 0 : 1;
}

}  // namespace

int main(int argc, char* argv[]) {
  const bool show_log = argc == 2 && strcmp(argv[1], "--log") == 0;
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    fputs(kUsage, stdout);
    return 0;
  }
  if (argc > 1 && !show_log) {
    fputs(kUsage, stderr);
    return 2;
  }
  if (EngineIsRunning()) {
    fputs("mpbp-demo: an engine is running; the demo's kill would end it too. End it first.\n",
          stderr);
    return 1;
  }
  // Engines detach themselves: this makes them children of the demo, which can wait for their end.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::string folder = ProgramFolder();
  if (folder.empty() || (!show_log && !freopen("/dev/null", "w", stderr))) return 1;
  return RunDemo(folder);
}
