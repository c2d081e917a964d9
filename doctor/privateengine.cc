#include "doctor/privateengine.h"

#include <unistd.h>

#include <algorithm>
#include <thread>

#include "base/filestream.h"
#include "base/timeutils.h"
#include "doctor/checks.h"
#include "doctor/files.h"
#include "doctor/processes.h"
#include "engineprocesses.h"
#include "portfileutils.h"

namespace mpbp::doctor {
namespace {

// As long as the plug-in waits before it warns.
constexpr int kPortFileMs = 10'000;
constexpr auto kPoll = std::chrono::milliseconds(10);
constexpr int kHighestSystemPid = 999;
constexpr size_t kMaxErrorText = 4096;

// The dynamic loader's complaint about a missing library, which is nobody's secret; else empty.
std::string LoaderComplaint(const std::string& error_path) {
  const std::string text = ReadFileText(error_path, kMaxErrorText);
  const size_t begin = text.find("error while loading shared libraries: ");
  if (begin == std::string::npos) return {};
  return text.substr(begin, std::min(text.find('\n', begin), text.size()) - begin);
}

CheckResult Ended(int status, const std::string& error_path) {
  const std::string complaint = LoaderComplaint(error_path);
  if (!complaint.empty()) {
    return Fault("the engine does not start: " + complaint,
                 "Install the package that has this library.");
  }
  return Fault("the engine " + EndText(status) + " before it wrote a port file",
               "Start it in a terminal and read what it says; see its own log. An engine with one "
               "lock for all folders cannot be tried while another one runs: end that one first.");
}

}  // namespace

const CheckResult& PrivateEngine::Start() {
  if (!result_) result_ = Launch();
  return *result_;
}

CheckResult PrivateEngine::Launch() {
  if (!folder_.Make(setup_)) return Fault(folder_.error(), "Set TMPDIR to a folder with room.");
  if (CheckInstallDir(setup_).status == CheckStatus::FAULT) {
    return Skipped("there is no engine to start (install-dir)");
  }
  const std::string error_path = folder_.path() + "engine-errors";
  int error = 0;
  auto program = StartProgram(setup_.engine_program, {}, false, error_path, &error);
  if (!program) {
    return Fault(setup_.engine_program + " cannot be run: " + ErrorText(error),
                 "It must be a program for this machine, or a script whose first line names an "
                 "interpreter that is there.");
  }
  return WaitForPortFile(std::move(*program), error_path);
}

CheckResult PrivateEngine::WaitForPortFile(Program program, const std::string& error_path) {
  const Deadline deadline(kPortFileMs);
  const uint32_t start = Time();
  std::optional<int> status;
  for (;;) {
    int port = 0;
    std::string cookie;
    if (MayAccess(port_file(), F_OK) && ReadPortFile(port_file(), &port, &cookie)) {
      runs_ = true;
      return DescribeRunning(port, TimeDiff(Time(), start));
    }
    // It may have left a process that goes on.
    if (!status) status = WaitForEnd(program.pid, Deadline(0));
    if (status && FindDescendants().empty()) return Ended(*status, error_path);
    if (deadline.Passed()) break;
    std::this_thread::sleep_for(kPoll);
  }
  return Fault(
      "the engine runs and has written no port file after " + DurationText(kPortFileMs / 1000),
      std::string("It must write ") + kPluginPortFileName +
          " into murmel-murmelparlplugin/ of XDG_CONFIG_HOME when it listens; "
          "docs/wire-format.md has its form.");
}

CheckResult PrivateEngine::DescribeRunning(int port, int ms) const {
  std::vector<int> engines;
  FindEngineProcesses(true, &engines);
  const std::vector<int> descendants = FindDescendants();
  const bool found = std::any_of(engines.begin(), engines.end(), [&](int pid) {
    return std::find(descendants.begin(), descendants.end(), pid) != descendants.end();
  });
  const std::string told = "the doctor's engine wrote a port file after " + std::to_string(ms) +
                           " ms, port " + std::to_string(port);
  if (found) return Ok(told);
  const bool low_ids = std::all_of(descendants.begin(), descendants.end(),
                                   [](int pid) { return pid <= kHighestSystemPid; });
  if (low_ids) {
    return Warning(told + "; its process id is below 1000, where a page's kill does not look",
                   "Use up the ids below 1000 before the browser starts, as in a container.");
  }
  return Warning(told + "; no process of it is called MurmelParlPlugi, so a page's kill misses it",
                 "The engine must keep the name of its program: a script is started by its own "
                 "first line, not by env or a wrapper.");
}

}  // namespace mpbp::doctor
