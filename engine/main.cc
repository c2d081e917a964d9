// build/engine/MurmelParlPlugin: the stand-in engine. See README.md.
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/filesystem.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "base/threadmanager.h"
#include "engine/engine.h"
#include "engine/enginelock.h"
#include "engine/process.h"

namespace {

using namespace mpbp;
using namespace mpbp::engine;

constexpr char kLockFileName[] = "murmelparlplugin_lock";
constexpr char kLogFileName[] = "murmelparlplugin.log";
// How long another engine may take to end.
constexpr int kLockWaitMs = 10'000;
constexpr int kUsageStatus = 2;

constexpr char kHelp[] =
    "MurmelParlPlugin: the stand-in engine. Listens on 127.0.0.1 for the browser plug-in, which\n"
    "finds it by its port file, echoes the page's texts and obeys its requests.\n"
    "\n"
    "Usage: MurmelParlPlugin [--foreground | --help]\n"
    "\n"
    "  --foreground  keeps the session and the standard streams, and logs to standard error too\n"
    "\n"
    "Ends on SIGTERM and SIGINT, on the page's [\"quit\"], and after a minute without a client;\n"
    "with status 0 when another one runs and does not end within 10 seconds.\n"
    "\n"
    "Environment:\n"
    "  MURMEL_ENGINE_MODE          how to misbehave: mute-handshake, bad-cookie, no-qw,\n"
    "                              drop-after-auth, drop-after-connect, exit-at-once,\n"
    "                              no-port-file; normal by default\n"
    "  MURMEL_ENGINE_IDLE_SECONDS  seconds without a client until it ends, 1 to 86400;\n"
    "                              60 by default\n"
    "\n"
    "engine/README.md of the sources lists the requests.\n";

struct Settings {
  Mode mode = Mode::kNormal;
  int idle_seconds = kDefaultIdleSeconds;
  bool foreground = false;
};

const char* Variable(const char* name) {
  const char* const value = getenv(name);
  return value ? value : "";
}

bool SetSignals(PhysicalSocketServer& server, bool foreground) {
  const auto end = [](int) { Thread::Current()->Quit(); };
  // Without a terminal of its own it has nothing to do with the end of one.
  return server.SetPosixSignalHandler(SIGPIPE, SIG_IGN) &&
         server.SetPosixSignalHandler(SIGHUP, foreground ? end : SIG_IGN) &&
         server.SetPosixSignalHandler(SIGTERM, end) && server.SetPosixSignalHandler(SIGINT, end);
}

int Run(const Settings& settings) {
  PhysicalSocketServer server;
  Thread thread(&server);
  ThreadManager::Instance().SetCurrentThread(&thread);
  bool started = SetSignals(server, settings.foreground);
  {
    Engine engine(settings.mode, settings.idle_seconds, MakeRoomForClients());
    started = started && engine.Start();
    if (started) {
      // From here on nothing is for the eyes of who started it.
      if (!settings.foreground) LetGoOfStandardStreams();
      thread.ProcessMessages(kForever);
    }
  }
  ThreadManager::Instance().SetCurrentThread(nullptr);
  return started ? EXIT_SUCCESS : EXIT_FAILURE;
}

// As the one engine of the user.
int RunAlone(const Settings& settings) {
  Filesystem::SetOrganizationName("Murmel");
  Filesystem::SetApplicationName("Murmel Parl Plugin");
  Pathname path;
  if (!Filesystem::GetAppDataFolder(&path, true)) {
    fputs("MurmelParlPlugin: there is no folder for the port file.\n", stderr);
    return EXIT_FAILURE;
  }
  path.SetFilename(kLockFileName);
  EngineLock lock;
  switch (lock.Take(path.pathname(), kLockWaitMs)) {
    case EngineLock::Outcome::kTaken:
      break;
    case EngineLock::Outcome::kHeldByOther:
      fputs("MurmelParlPlugin: another one is running.\n", stderr);
      return EXIT_SUCCESS;
    case EngineLock::Outcome::kFailed:
      fprintf(stderr, "MurmelParlPlugin: cannot lock %s: %s\n", path.pathname().c_str(),
              strerror(errno));
      return EXIT_FAILURE;
  }
  LogMessage::LogToDebug(settings.foreground ? LS_INFO : LS_ERROR);
  path.SetFilename(kLogFileName);
  OpenLogFile(path.pathname());
  return Run(settings);
}

}  // namespace

int main(int argc, char** argv) {
  FillStandardStreams();
  const std::string_view argument = argc == 2 ? argv[1] : "";
  if (argument == "--help") {
    fputs(kHelp, stdout);
    return EXIT_SUCCESS;
  }
  Settings settings;
  settings.foreground = argument == "--foreground";
  if (argc > 1 && !settings.foreground) {
    fputs("MurmelParlPlugin takes no arguments but --foreground or --help.\n", stderr);
    return kUsageStatus;
  }
  const std::optional<Mode> mode = ModeFromName(Variable(kModeVariable));
  const std::optional<int> idle_seconds = IdleSecondsFromText(Variable(kIdleVariable));
  if (!mode || !idle_seconds) {
    fprintf(stderr, "MurmelParlPlugin: %s=\"%s\" is not known.\n",
            mode ? kIdleVariable : kModeVariable, Variable(mode ? kIdleVariable : kModeVariable));
    return kUsageStatus;
  }
  if (*mode == Mode::kExitAtOnce) return EXIT_SUCCESS;
  settings.mode = *mode;
  settings.idle_seconds = *idle_seconds;
  if (!settings.foreground) LeaveSession();
  return RunAlone(settings);
}
