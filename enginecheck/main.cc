// build/mpbp-engine-check: see docs/engine.md.
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "checks/checkprogram.h"
#include "enginecheck/deadline.h"
#include "enginecheck/enginechecks.h"
#include "plugin/mpbp/common/version.h"

namespace {

using namespace mpbp;
using namespace mpbp::enginecheck;

constexpr char kWordsOption[] = "--words";

constexpr struct {
  const char* name;
  const char* about;
  CheckResult (*run)(Trial& trial);
} kChecks[] = {
    {"start", "the program runs and writes a port file", CheckStart},
    {"port-file-form", "port and cookie, and a listener behind them", CheckPortFileForm},
    {"port-file-new", "an old port file is replaced, not written into", CheckPortFileNew},
    {"port-file-mode", "its mode is 0600", CheckPortFileMode},
    {"loopback", "127.0.0.1 is the only address that it listens on", CheckLoopback},
    {"cookie", "the right cookie is answered in time", CheckCookie},
    {"split-frames", "frames that come in pieces are put together", CheckSplitFrames},
    {"joined-frames", "frames that come together are taken apart", CheckJoinedFrames},
    {"wrong-cookie", "others are refused, and nothing is taken before the right one",
     CheckWrongCookie},
    {"unknown-types", "frames of unknown types do no harm", CheckUnknownTypes},
    {"qw", "a text with \"qw\" follows the cookie", CheckQw},
    {"clients", "many connections are served at a time", CheckClients},
    {"page-texts", "no text of a page comes back so that the plug-in acts on it", CheckPageTexts},
    {"large-text", "a text of 10 MB is read", CheckLargeText},
    {"process-name", "a page's kill finds the process", CheckProcessName},
    {"detached", "session and standard streams are let go of, SIGHUP is ignored", CheckDetached},
    {"second-start", "a second engine waits for the first one's end, and ends", CheckSecondStart},
    {"sigterm", "SIGTERM ends it", CheckSigterm},
    {"port-file-end", "the port file goes at the end when it is its own", CheckPortFileEnd},
    {"fresh-cookie", "each start has a cookie of its own", CheckFreshCookie},
};

std::vector<std::string> WordsOf(const CommandLine& line) {
  const auto found = line.options.find(kWordsOption);
  std::istringstream list(found == line.options.end() ? "echo" : found->second);
  std::vector<std::string> words;
  for (std::string word; std::getline(list, word, ',');) words.push_back(word);
  return words;
}

std::string ComplaintAbout(const CommandLine& line) {
  for (const std::string& word : WordsOf(line)) {
    if (word.empty() || word.find_first_of("\"\\") != std::string::npos) {
      return std::string(kWordsOption) + " takes words, with commas between them";
    }
  }
  return "";
}

// The engine runs in another folder.
std::string AbsolutePath(const CommandLine& line) {
  const std::string given = line.arguments.empty() ? "" : line.arguments.front();
  char path[PATH_MAX];
  return realpath(given.c_str(), path) ? path : given;
}

std::vector<Check> MakeChecks(Trial& trial) {
  std::vector<Check> checks;
  for (const auto& check : kChecks) {
    checks.push_back({check.name, check.about, [run = check.run, &trial] { return run(trial); }});
  }
  return checks;
}

// The signals that ask for an early end: the engines go first.
void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { InterruptWaits(); };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

// Else a connection could get the number of one.
void FillStandardStreams() {
  int fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_RDWR);
  if (fd >= 0) close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  FillStandardStreams();
  CatchSignals();
  std::unique_ptr<Trial> trial;
  CheckProgram program;
  program.name = "mpbp-engine-check";
  program.version = PluginVersion();
  program.about =
      "Starts PROGRAM, an engine, as the plug-in would, in a temporary folder, and looks at each "
      "of\n"
      "its duties. The user's own engine and files are not touched. Takes some 15 seconds, a few\n"
      "minutes at most.\n";
  program.options = {
      {kWordsOption, "WORD,...",
       "the engine's words that bring a page's text back, as echo in [\"echo\",any]"}};
  program.arguments = {"PROGRAM"};
  program.checks = [&trial](const CommandLine& line) {
    trial = std::make_unique<Trial>(AbsolutePath(line), WordsOf(line));
    return MakeChecks(*trial);
  };
  program.complaint = ComplaintAbout;
  program.interrupted = WaitsInterrupted;
  const int status = RunCheckProgram(program, argc, argv);
  trial.reset();
  return WaitsInterrupted() ? kFaults : status;
}
