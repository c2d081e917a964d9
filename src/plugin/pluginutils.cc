#include "plugin/pluginutils.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "base/filesystem.h"
#include "base/logging.h"
#include "base/posix.h"
#include "engineprocesses.h"
#include "optionspersistence.h"

namespace mpbp {
namespace {

// How long one launch serves everybody in the process.
constexpr auto kSharedLaunch = std::chrono::seconds(1);

using Clock = std::chrono::steady_clock;

constexpr Clock::time_point kNoLaunch = Clock::time_point::min();
constinit std::atomic<Clock::time_point> last_launch{kNoLaunch};  // of those that worked
// The last of those that worked, until somebody was warned about it.
constinit std::atomic<Clock::time_point> unwarned_launch{kNoLaunch};

std::string EnginePath() {
  std::string path;
  if (!CreateOptionsPersistence()->GetStringValue("install_dir", &path) || path.empty()) {
    path = kDefaultInstallDir;
    LOG(LS_WARNING) << "Failed to get MurmelParlPlugin path. Trying default.";
  }
  return Pathname(path, kEngineName).pathname();
}

// The launch itself does not see this. It looks for a relative path in "/".
void WarnIfItCannotBeRun(const std::string& path) {
  const std::string absolute = path.starts_with('/') ? path : "/" + path;
  int error = 0;
  if (faccessat(AT_FDCWD, absolute.c_str(), X_OK, AT_EACCESS) != 0) {
    error = errno;
  } else if (!Filesystem::IsFile(absolute)) {
    error = EACCES;
  }
  if (error == 0) return;
  LOG_ERR_EX(LS_WARNING, error) << "MurmelParlPlugin cannot be run, path=" << absolute;
}

std::string DescribeEngines() {
  std::vector<int> pids;
  FindEngineProcesses(true, &pids);
  if (pids.empty()) {
    return "No process of that name with an id above 999 runs: it has ended, could not be run, or "
           "has another name";
  }
  std::string text = "It runs, pid:";
  for (const int pid : pids) text += " " + std::to_string(pid);
  return text;
}

}  // namespace

bool LaunchEngine(int* error) {
  *error = 0;
  LOG(LS_INFO) << "Starting Quern";
  std::string path = EnginePath();
  WarnIfItCannotBeRun(path);
  char* const argv[] = {path.data(), nullptr};
  int system_error = 0;
  if (RunAsDaemon(path.c_str(), argv, &system_error)) {
    LOG(LS_INFO) << "Started MurmelParlPlugin, path=" << path;
    unwarned_launch = Clock::now();
    return true;
  }
  *error = system_error != 0 ? system_error : -1;
  LOG_ERR_EX(LS_ERROR, system_error) << "Failed to start MurmelParlPlugin, path=" << path;
  return false;
}

bool ShareEngineLaunch(int* error) {
  const Clock::time_point last = last_launch;
  if (last != kNoLaunch && Clock::now() - last < kSharedLaunch) {
    LOG(LS_INFO) << "MurmelParlPlugin was started less than a second ago.";
    *error = 0;
    return true;
  }
  const bool launched = LaunchEngine(error);
  last_launch = launched ? Clock::now() : kNoLaunch;
  return launched;
}

void ForgetEngineLaunch() { last_launch = kNoLaunch; }

void WarnOfSilentLaunch(std::chrono::milliseconds patience) {
  Clock::time_point launch = unwarned_launch;
  if (launch == kNoLaunch || Clock::now() - launch < patience) return;
  const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - launch);
  if (!unwarned_launch.compare_exchange_strong(launch, kNoLaunch)) return;
  Pathname folder;
  static_cast<void>(Filesystem::GetAppDataFolder(&folder, true));  // logs its failure
  LOG(LS_WARNING) << "MurmelParlPlugin was started " << age.count()
                  << " s ago, and there is no port file that can be used in " << folder.folder()
                  << ". " << DescribeEngines() << ".";
}

}  // namespace mpbp
