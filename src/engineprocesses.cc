#include "engineprocesses.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/directoryiterator.h"
#include "base/filestream.h"
#include "base/logging.h"

namespace mpbp {
namespace {

constexpr int kHighestSystemPid = 999;
constexpr size_t kCommandNameLength = 15;  // TASK_COMM_LEN of Linux less its NUL
constexpr size_t kStatLength = 50;         // enough for the id and the command name

// The id that the entry name spells, 0 when the entry is not a process. The whole name counts: an
// id has up to seven digits, and six of them would be another process's.
int ParsePid(const std::string& name) {
  int pid = 0;
  const char* end = name.data() + name.size();
  const auto result = std::from_chars(name.data(), end, pid);
  return result.ec == std::errc() && result.ptr == end ? pid : 0;
}

bool IsEngine(int pid, const std::string& folder) {
  FileStream file;
  if (!file.Open(folder + "/stat", "r", nullptr)) {
    LOG(LS_WARNING) << "Couldn't find /proc/" << pid << "/stat. Skipping.";
    return false;
  }
  char buffer[kStatLength + 1] = {};
  size_t read = 0;
  if (file.Read(buffer, kStatLength, &read, nullptr) == StreamResult::SR_ERROR) {
    LOG(LS_WARNING) << "Couldn't read /proc/" << pid << "/stat. Skipping.";
    return false;
  }
  const std::optional<bool> is_engine = IsEngineStat(buffer);
  if (!is_engine) LOG(LS_WARNING) << "Unexpected content in /proc/" << pid << "/stat: " << buffer;
  return is_engine.value_or(false);
}

}  // namespace

std::optional<bool> IsEngineStat(const char* stat) {
  int pid = 0;
  char name[kStatLength + 1] = {};
  // The name goes on to the first white space, so it ends with the closing parenthesis unless the
  // command name holds a blank; only its beginning matters.
  if (sscanf(stat, "%d (%50s", &pid, name) != 2) return std::nullopt;
  return strncmp(name, kEngineName, kCommandNameLength) == 0;
}

void FindEngineProcesses(bool skip_self, std::vector<int>* pids) {
  const int own_pid = skip_self ? getpid() : -1;
  DirectoryIterator entries;
  if (!entries.Iterate("/proc/")) {
    LOG(LS_ERROR) << "Unexpected: /proc filesystem doesn't exist.";
    return;
  }
  do {
    const std::string name = entries.Name();
    const int pid = ParsePid(name);
    if (pid <= kHighestSystemPid || pid == own_pid || !entries.IsDirectory()) continue;
    if (IsEngine(pid, "/proc/" + name)) pids->push_back(pid);
  } while (entries.Next());
}

void LogEngineProcesses() {
  LOG(LS_INFO) << "Quern processes.";
  std::vector<int> pids;
  FindEngineProcesses(true, &pids);
  for (const int pid : pids) LOG(LS_INFO) << "pid: " << pid;
}

bool SignalProcess(int pid, bool immediate) {
  LOG(LS_INFO) << "Sending " << (immediate ? "SIGKILL" : "SIGTERM") << " to pid " << pid;
  if (pid <= 0 || kill(pid, immediate ? SIGKILL : SIGTERM) != 0) {
    LOG(LS_ERROR) << "Error sending signal.";
    return false;
  }
  LOG(LS_VERBOSE) << "Signal sent successfully.";
  return true;
}

int KillEngineProcesses(bool skip_self, bool immediate) {
  LOG(LS_VERBOSE) << "Killing all running quern processes. skip_self? " << skip_self
                  << ", immediate? " << immediate;
  std::vector<int> pids;
  FindEngineProcesses(true, &pids);
  const auto signalled = std::count_if(
      pids.begin(), pids.end(), [immediate](int pid) { return SignalProcess(pid, immediate); });
  if (immediate) {
    std::vector<int> remaining;
    FindEngineProcesses(true, &remaining);
    for (const int pid : pids) {
      if (std::find(remaining.begin(), remaining.end(), pid) == remaining.end()) continue;
      LOG(LS_WARNING) << "pid " << pid << " is still running.";
    }
  }
  return static_cast<int>(signalled);
}

}  // namespace mpbp
