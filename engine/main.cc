// build/engine/MurmelParlPlugin: the stand-in engine. See README.md.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/filesystem.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "base/thread.h"
#include "engine/engine.h"

namespace {

using namespace mpbp;
using namespace mpbp::engine;

constexpr char kHelp[] =
    "MurmelParlPlugin: the stand-in engine. Listens on 127.0.0.1 for the browser plug-in, which\n"
    "finds it by its port file, echoes the page's texts and obeys its requests.\n"
    "\n"
    "Usage: MurmelParlPlugin [--help]\n"
    "\n"
    "Ends on SIGTERM and SIGINT, on the page's [\"quit\"], and after a minute without a client.\n"
    "\n"
    "Environment:\n"
    "  MURMEL_ENGINE_MODE          how to misbehave: mute-handshake, bad-cookie, no-qw,\n"
    "                              drop-after-auth, drop-after-connect, exit-at-once,\n"
    "                              no-port-file; normal by default\n"
    "  MURMEL_ENGINE_IDLE_SECONDS  seconds without a client until it ends, 1 to 86400;\n"
    "                              60 by default\n"
    "\n"
    "engine/README.md of the sources lists the requests.\n";

const char* Variable(const char* name) {
  const char* const value = getenv(name);
  return value ? value : "";
}

int Run(Mode mode, int idle_seconds) {
  PhysicalSocketServer server;
  Thread thread(&server);
  ThreadManager::Instance().SetCurrentThread(&thread);
  const auto end = [](int) { Thread::Current()->Quit(); };
  bool started = server.SetPosixSignalHandler(SIGPIPE, SIG_IGN) &&
                 server.SetPosixSignalHandler(SIGTERM, end) &&
                 server.SetPosixSignalHandler(SIGINT, end);
  {
    Engine engine(mode, idle_seconds);
    started = started && engine.Start();
    if (started) thread.ProcessMessages(kForever);
  }
  ThreadManager::Instance().SetCurrentThread(nullptr);
  return started ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    const bool help = argc == 2 && std::string_view(argv[1]) == "--help";
    fputs(help ? kHelp : "MurmelParlPlugin takes no arguments but --help.\n",
          help ? stdout : stderr);
    return help ? EXIT_SUCCESS : 2;
  }
  const std::optional<Mode> mode = ModeFromName(Variable(kModeVariable));
  const std::optional<int> idle_seconds = IdleSecondsFromText(Variable(kIdleVariable));
  if (!mode || !idle_seconds) {
    fprintf(stderr, "MurmelParlPlugin: %s=\"%s\" is not known.\n",
            mode ? kIdleVariable : kModeVariable, Variable(mode ? kIdleVariable : kModeVariable));
    return 2;
  }
  if (*mode == Mode::kExitAtOnce) return EXIT_SUCCESS;
  LogMessage::LogToDebug(LS_ERROR);
  Filesystem::SetOrganizationName("Murmel");
  Filesystem::SetApplicationName("Murmel Parl Plugin");
  return Run(*mode, *idle_seconds);
}
