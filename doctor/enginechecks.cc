// handshake, echo, engines.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "doctor/checks.h"
#include "doctor/files.h"
#include "doctor/linkprobe.h"
#include "doctor/processes.h"
#include "engineprocesses.h"
#include "portfileutils.h"

namespace mpbp::doctor {
namespace {

using Clock = std::chrono::steady_clock;

// As long as the plug-in gives an engine.
constexpr int kHandshakeMs = 5000;
constexpr int kReadyMs = 3000;
// An engine need not know "echo", so the first answer is not waited for as long as the others.
constexpr int kFirstAnswerMs = 1000;
constexpr int kAnswerMs = 5000;
constexpr int kRounds = 20;
constexpr size_t kLargeText = 1 << 20;

// A fault unless the link was authorized.
void AddHandshake(const std::string& whose, Handshake handshake, CheckResult* result) {
  switch (handshake) {
    case Handshake::AUTHORIZED:
      return result->AddOk(whose + " accepts the cookie");
    case Handshake::NO_PORT_FILE:
      return result->AddFault(whose + " has no port file that can be read",
                              "See the check port-file.");
    case Handshake::REFUSED:
      return result->AddFault(whose + " does not take the connection",
                              "It must listen before it writes its port file, and accept all that "
                              "wait.");
    case Handshake::CLOSED:
      return result->AddFault(whose + " closes the link in the handshake",
                              "See its log. The plug-in gives up after this.");
    case Handshake::WRONG_COOKIE:
      return result->AddFault(whose + " says that the cookie is wrong",
                              "The port file must hold the first 16 bytes of the cookie that it "
                              "compares. End the engine, so that a new one writes a new file.");
    case Handshake::SILENT:
      break;
  }
  result->AddFault(whose + " does not answer the cookie within 5 seconds",
                   "It hangs, or speaks another protocol: end it, and see its log.");
}

bool SaysQw(const std::string& text) { return text.find("\"qw\"") != std::string::npos; }

// Whether the user's port file leads to an engine of the user, as the check port-file has it.
bool UsersEngineListens(const Setup& setup) {
  int port = 0;
  std::string cookie;
  if (setup.folder.empty() || !ReadPortFile(setup.folder + kPluginPortFileName, &port, &cookie)) {
    return false;
  }
  const auto listener = FindListener(port);
  return listener && listener->user == geteuid() && IsEngineName(listener->name);
}

double MillisecondsSince(Clock::time_point start, Clock::time_point end) {
  return std::chrono::duration<double, std::milli>(end - start).count();
}

// The time of one round trip; negative when the same text did not come back.
double RoundTrip(LinkProbe* probe, const std::string& text, int timeout_ms) {
  const Clock::time_point start = Clock::now();
  if (!probe->Send(text)) return -1;
  const auto answer = probe->WaitForText(
      [&text](const std::string& candidate) { return candidate == text; }, timeout_ms);
  return answer ? MillisecondsSince(start, answer->came) : -1;
}

CheckResult MeasureEcho(LinkProbe* probe) {
  std::vector<double> times;
  for (int round = 0; round < kRounds; ++round) {
    const double time = RoundTrip(probe, "[\"echo\",\"doctor " + std::to_string(round) + "\"]",
                                  round == 0 ? kFirstAnswerMs : kAnswerMs);
    if (time < 0) break;
    times.push_back(time);
  }
  if (probe->closed()) {
    return Fault("the engine closes the link at a page's text",
                 "It must bear any text of a page; see its log.");
  }
  if (times.empty()) {
    return Skipped(
        "this engine does not send [\"echo\",...] back; only the stand-in engine has to");
  }
  const std::string large = "[\"echo\",\"" + std::string(kLargeText, 'x') + "\"]";
  const double large_time = RoundTrip(probe, large, kAnswerMs);
  if (times.size() < kRounds || large_time < 0) {
    return Fault(large_time < 0 ? "a text of 1 MiB does not come back as it was"
                                : "some texts do not come back as they were",
                 "The engine must put frames together from what arrives in pieces.");
  }
  std::sort(times.begin(), times.end());
  char text[128];
  snprintf(text, sizeof(text), "%d round trips: median %.2f ms, longest %.2f ms; 1 MiB: %.1f ms",
           kRounds, times[kRounds / 2], times.back(), large_time);
  return Ok(text);
}

}  // namespace

CheckResult CheckHandshake(const Setup& setup, PrivateEngine& engine) {
  CheckResult result;
  engine.Start();
  if (engine.runs()) {
    LinkProbe probe;
    AddHandshake("the doctor's engine", probe.Shake(engine.port_file(), kHandshakeMs), &result);
    engine.set_refuses(result.status == CheckStatus::FAULT);
    if (engine.refuses() || probe.WaitForText(SaysQw, kReadyMs)) {
      // Nothing to add.
    } else if (probe.closed()) {
      engine.set_refuses(true);
      result.AddFault("it closes the link right after that",
                      "It must keep the link until the page's side closes it; see its log.");
    } else {
      result.AddWarning(
          "it does not announce itself with \"qw\": the plug-in will not start it again when it "
          "dies",
          "It must send a text that holds \"qw\" as soon as a connection is authorized.");
    }
  }
  if (UsersEngineListens(setup)) {
    LinkProbe probe;
    AddHandshake("the running engine",
                 probe.Shake(setup.folder + kPluginPortFileName, kHandshakeMs), &result);
  }
  if (result.message.empty()) return Skipped("there is no engine to talk to (engine-start)");
  return result;
}

CheckResult CheckEcho(PrivateEngine& engine) {
  engine.Start();
  if (!engine.runs()) return Skipped("there is no engine to talk to (engine-start)");
  LinkProbe probe;
  if (engine.refuses() || probe.Shake(engine.port_file(), kHandshakeMs) != Handshake::AUTHORIZED) {
    return Skipped("the link is not authorized (handshake)");
  }
  return MeasureEcho(&probe);
}

CheckResult CheckEngines() {
  std::vector<int> pids;
  FindEngineProcesses(true, &pids);
  const std::vector<int> own = FindDescendants();
  std::string list;
  int count = 0;
  int zombies = 0;
  for (const int pid : pids) {
    const auto process = FindProcess(pid);
    if (!process || process->user != geteuid() ||
        std::find(own.begin(), own.end(), pid) != own.end()) {
      continue;
    }
    ++count;
    zombies += process->state == 'Z' ? 1 : 0;
    list += (list.empty() ? "" : ", ") + std::string("process ") + std::to_string(pid) + " (" +
            (process->state == 'Z' ? "ended and not reaped, " : "") + "started " +
            DurationText(process->age_seconds) + " ago)";
  }
  if (count == 0) return Ok("none runs");
  CheckResult result;
  result.AddOk(list);
  if (count - zombies > 1) {
    result.AddWarning("more than one runs",
                      "An engine must hold a lock and end when another one holds it. End all but "
                      "one with kill PROCESS; a page's kill ends them all.");
  }
  if (zombies > 0) {
    result.AddWarning("",
                      "Whatever should reap ended processes, the first process of a container "
                      "as a rule, does not; a page's kill counts them.");
  }
  return result;
}

}  // namespace mpbp::doctor
