// mpbp-doctor: looks at everything between a page and the engine, and says what to do.
#include "checks/checkprogram.h"
#include "doctor/checks.h"
#include "doctor/privateengine.h"
#include "doctor/privatefolder.h"
#include "doctor/programs.h"
#include "doctor/redaction.h"
#include "doctor/report.h"
#include "doctor/setup.h"
#include "plugin/mpbp/common/version.h"

namespace mpbp::doctor {
namespace {

constexpr char kAbout[] =
    "mpbp-doctor looks at everything between a page and the Murmel Parl engine: a line for each\n"
    "check, and below each fault and warning what to do. It changes nothing and leaves nothing\n"
    "behind; an engine and a connector that it starts have a temporary folder of their own.\n";

std::string OptionOf(const CommandLine& line, const char* name) {
  const auto option = line.options.find(name);
  return option == line.options.end() ? std::string() : option->second;
}

class Doctor {
 public:
  Doctor() : names_(NameRedaction::OfThisUser()), engine_(setup_, folder_) {}
  Doctor(const Doctor&) = delete;
  Doctor& operator=(const Doctor&) = delete;
  ~Doctor() { EndDescendants(); }

  int Run(int argc, char** argv) {
    CheckProgram program;
    program.name = "mpbp-doctor";
    program.version = PluginVersion();
    program.about = kAbout;
    program.options = {{"--url", "URL", "says whether the page at URL would be served, and why"},
                       {"--module", "FILE", "the module, where it is not beside this program"},
                       {"--connector", "FILE", "the connector, likewise"}};
    program.checks = [this](const CommandLine& line) { return Checks(line); };
    program.report = [this](const std::string& lines) { return MakeReport(setup_, names_, lines); };
    program.interrupted = Interrupted;
    return RunCheckProgram(program, argc, argv);
  }

 private:
  std::vector<Check> Checks(const CommandLine& line) {
    setup_ = FindSetup(OptionOf(line, "--module"), OptionOf(line, "--connector"));
    const std::string url = OptionOf(line, "--url");
    return {
        {"module", "the plug-in's module loads: exports, version, libraries",
         [this] { return CheckModule(setup_); }},
        {"folder", "the configuration folder: owner, mode, room",
         [this] { return CheckFolder(setup_); }},
        {"options", "each line of the options file", [this] { return CheckOptions(setup_); }},
        {"log", "the log can be written; its level, last start and errors",
         [this] { return CheckLog(setup_); }},
        {"install-dir", "the engine's program is there and may be run",
         [this] { return CheckInstallDir(setup_); }},
        {"port-file", "owner, mode, form, port, and who listens there",
         [this] { return CheckPortFile(setup_); }},
        {"engine-start", "an engine of its own starts and writes a port file",
         [this] { return engine_.Start(); }},
        {"handshake", "that engine, and one that runs, accept the cookie",
         [this] { return CheckHandshake(setup_, engine_); }},
        {"echo", "texts there and back, with times", [this] { return CheckEcho(engine_); }},
        {"engines", "the engines of this user that run", [] { return CheckEngines(); }},
        {"hosts", "which pages are served; with --url whether this one is",
         [this, url] { return CheckHosts(setup_, folder_, url); }},
        {"proxy", "what engines are told of proxies", [] { return CheckProxy(); }},
        {"connector", "mpbp-connector starts and answers a page's link",
         [this] { return CheckConnector(setup_, folder_); }},
        {"browsers", "Chromium, Chrome and Firefox find the connector",
         [this] { return CheckBrowsers(setup_); }},
        {"webengine", "Qt WebEngine is there and takes the module",
         [this] { return CheckWebEngine(setup_); }},
    };
  }

  const NameRedaction names_;
  Setup setup_;
  PrivateFolder folder_;
  PrivateEngine engine_;
};

}  // namespace
}  // namespace mpbp::doctor

int main(int argc, char** argv) {
  mpbp::doctor::CareForProcess();
  return mpbp::doctor::Doctor().Run(argc, argv);
}
