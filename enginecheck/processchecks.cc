// The engine as a process among others.
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "enginecheck/enginechecks.h"

namespace mpbp::enginecheck {
namespace {

// How long a second engine waits for the end of the first: long enough for one that was asked to
// end, and not for ever.
constexpr int kShortestWaitMs = 5'000;
constexpr int kLongestWaitMs = 30'000;

constexpr char kOneEngineRemedy[] =
    "Hold an exclusive lock for as long as the engine runs; who finds it held tries again for some "
    "ten seconds and ends. See \"One engine\" in docs/engine.md.";

std::string Seconds(int ms) { return std::to_string(ms / 1000) + " seconds"; }

// A second engine beside one that stays. Empty when all is well.
std::string WatchSecond(Trial& trial, EngineProcess& second) {
  const std::string file = trial.start().port_file;
  const Deadline deadline(kLongestWaitMs);
  while (!second.Ended()) {
    if (trial.folder().ReadPortFile() != file) {
      return "A second engine changed the port file while the first one ran";
    }
    if (deadline.PassedAfterPause()) {
      return "A second engine did not end within " + Seconds(kLongestWaitMs);
    }
  }
  if (trial.folder().ReadPortFile() != file) {
    return "A second engine changed the port file while the first one ran";
  }
  if (deadline.Elapsed() < kShortestWaitMs) {
    return "A second engine ended after " + std::to_string(deadline.Elapsed()) +
           " ms: it must wait some seconds, since the first may be about to end";
  }
  return "";
}

}  // namespace

CheckResult CheckStart(Trial& trial) {
  CheckResult blocked;
  if (!trial.Engine(&blocked)) return blocked;
  return Ok("a port file after " + std::to_string(trial.starts().front().ms) + " ms");
}

CheckResult CheckProcessName(Trial& trial) {
  CheckResult blocked;
  EngineProcess* const engine = trial.Engine(&blocked);
  if (!engine) return blocked;
  std::string names;
  for (const pid_t pid : engine->Processes()) {
    const std::string name = ProcessName(pid);
    if (IsNamedAsEngine(pid)) return Ok(name + ", process id " + std::to_string(pid));
    names += (names.empty() ? "" : ", ") + name;
  }
  return Fault("The process is named " + names + ": a page's kill does not find it",
               "Name it MurmelParlPlugin: by its file, or by prctl(PR_SET_NAME) or "
               "/proc/self/comm when an interpreter runs it.");
}

CheckResult CheckDetached(Trial& trial) {
  CheckResult blocked;
  EngineProcess* const engine = trial.Engine(&blocked);
  if (!engine) return blocked;
  const std::vector<pid_t> pids = engine->Processes();
  if (std::any_of(pids.begin(), pids.end(), [](pid_t pid) { return getsid(pid) == getsid(0); })) {
    return Fault("The engine stays in the session of who started it",
                 "Call setsid: the end of a terminal or a login is not the engine's.");
  }
  const Deadline deadline(kAnswerMs);
  while (!engine->HasLetGoOfStreams()) {
    if (!deadline.PassedAfterPause()) continue;
    return Fault("The engine keeps standard input, output or error of who started it",
                 "Put /dev/null in their place: who reads a browser's output waits for the engine "
                 "too.");
  }
  if (!trial.Authorize(&blocked)) return blocked;
  engine->Signal(SIGHUP);
  if (!trial.StillServes()) {
    engine->Kill();
    return Fault("SIGHUP ended the engine", "Ignore it.");
  }
  return Ok("a session of its own, no stream of others, and SIGHUP is ignored");
}

CheckResult CheckSecondStart(Trial& trial) {
  CheckResult blocked;
  // Stays open: an engine may end when its last link is gone.
  const std::optional<EngineLink> link = trial.Authorize(&blocked);
  if (!link) return blocked;
  const std::unique_ptr<EngineProcess> second = trial.StartAnother(&blocked);
  if (!second) return blocked;
  const std::string problem = WatchSecond(trial, *second);
  second->Kill();
  if (!problem.empty()) return Fault(problem, kOneEngineRemedy);
  if (!trial.StillServes()) {
    return Fault("The first engine does not answer any more after a second start",
                 kOneEngineRemedy);
  }

  // One that waits takes the place of one that dies.
  std::unique_ptr<EngineProcess> third = trial.StartAnother(&blocked);
  EngineProcess* const first = trial.Engine(&blocked);
  if (!third || !first) return blocked;
  first->Kill();
  std::string start_problem;
  if (!trial.Await(std::move(third), trial.start().port_file, &start_problem)) {
    return Fault("An engine that waited did not take the place of one that died: " + start_problem,
                 kOneEngineRemedy);
  }
  if (!trial.StillServes()) {
    return Fault("An engine that took the place of one that died does not answer",
                 kOneEngineRemedy);
  }
  return Ok("it waits, leaves the port file alone and ends; when the first dies it takes over");
}

CheckResult CheckSigterm(Trial& trial) {
  CheckResult blocked;
  EngineProcess* const engine = trial.Engine(&blocked);
  if (!engine) return blocked;
  const Deadline deadline(kEndMs);
  if (!trial.Terminate(&blocked)) return blocked;
  return Ok("it ended after " + std::to_string(deadline.Elapsed()) + " ms");
}

}  // namespace mpbp::enginecheck
