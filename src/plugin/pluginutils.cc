#include "plugin/pluginutils.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "base/logging.h"
#include "base/posix.h"
#include "base/staticobject.h"
#include "base/systeminfo.h"
#include "engineprocesses.h"
#include "logutility.h"
#include "optionspersistence.h"

namespace mpbp {
namespace {

constexpr char kDefaultInstallDir[] = "/opt/murmel/parlplugin/";
constexpr char kApplicationName[] = "Murmel Parl Plugin";
constexpr char kOrganizationName[] = "Murmel";
constexpr int64_t kBytesPerMebibyte = 1'048'576;

// How long one launch serves everybody in the process.
constexpr auto kSharedLaunch = std::chrono::seconds(1);

using Clock = std::chrono::steady_clock;

constexpr Clock::time_point kNoLaunch = Clock::time_point::min();
constinit std::atomic<Clock::time_point> last_launch{kNoLaunch};  // of those that worked

struct LogStoreHolder {
  CriticalSection lock;
  std::shared_ptr<MemoryLog> store MPBP_GUARDED_BY(lock);
};

LogStoreHolder& LogStore() {
  static StaticObject<LogStoreHolder> holder;
  return *holder;
}

std::shared_ptr<MemoryLog> GetOrCreateLogStore() {
  CritScope scope(LogStore().lock);
  std::shared_ptr<MemoryLog>& store = LogStore().store;
  if (!store) store = std::make_shared<MemoryLog>();
  return store;
}

// Empty without a value; `options` is only read.
std::string GetOption(OptionsPersistenceInterface& options, const std::string& name) {
  std::string value;
  return options.GetStringValue(name, &value) ? value : std::string();
}

std::string EnginePath() {
  std::string path = GetOption(*CreateOptionsPersistence(), "install_dir");
  if (path.empty()) {
    path = kDefaultInstallDir;
    LOG(LS_WARNING) << "Failed to get MurmelParlPlugin path. Trying default.";
  }
  return Pathname(path, kEngineName).pathname();
}

// Where the log goes; empty when there is no place for it.
Pathname LogPath(const std::string& configured, const std::string& default_file_name,
                 LogPathMeans path_means) {
  if (!configured.empty()) {
    Pathname path(ReplaceTimestamp(configured));
    if (path_means == LogPathMeans::FOLDER_OF) path.SetFilename(default_file_name);
    return path;
  }
  LOG(LS_INFO) << "No bp log location saved, using default.";
  Pathname path;
  if (Filesystem::GetAppDataFolder(&path, true)) path.SetFilename(default_file_name);
  return path;
}

void OpenLog(const Pathname& path, int level) {
  if (!Filesystem::CreateFolder(path.folder(), 0700)) {
    LOG(LS_ERROR) << "Unable to create directory for logfile: " << path.pathname();
  }
  auto file = std::make_shared<FileStream>();
  std::shared_ptr<MemoryLog> store = GetOrCreateLogStore();
  if (!file->Open(path.pathname(), "w", nullptr) || !file->DisableBuffering()) {
    LOG(LS_ERROR) << "Unable to write to logfile:" << path.pathname();
    return;
  }
  LogMessage::LogToStream(std::move(file), level);
  LogMessage::AddLogToStream(std::move(store), level);
}

void LogSystemInfo() {
  const SystemInfo info = SystemInfo::Gather();
  LOG(LS_INFO) << "Cpu: " << info.cpu.family << "." << info.cpu.model << "." << info.cpu.stepping
               << ", x" << info.cpu.processors << ", " << info.max_cpu_mhz << "Mhz, "
               << info.memory_bytes / kBytesPerMebibyte << "MB";
  LOG(LS_INFO) << "Computer model: " << info.model;
}

}  // namespace

bool LaunchEngine(int* error) {
  *error = 0;
  LOG(LS_INFO) << "Starting Quern";
  std::string path = EnginePath();
  char* const argv[] = {path.data(), nullptr};
  int system_error = 0;
  if (RunAsDaemon(path.c_str(), argv, &system_error)) {
    LOG(LS_INFO) << "Started MurmelParlPlugin, path=" << path;
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

void SetupPluginLogging(const std::string& prefix, const std::string& default_file_name,
                        LogPathMeans path_means) {
  Filesystem::SetApplicationName(kApplicationName);
  Filesystem::SetOrganizationName(kOrganizationName);
  const auto options = CreateOptionsPersistence();
  const std::string level_name = GetOption(*options, prefix + "_log_level");
  const int level = level_name.empty() ? LS_INFO : LogMessage::SeverityFromName(level_name);
  LogMessage::LogToDebug(std::min<int>(level, LS_INFO));
  const Pathname path =
      LogPath(GetOption(*options, prefix + "_log_path"), default_file_name, path_means);
  LogMessage::LogTimestamps(true);
  if (!path.empty()) OpenLog(path, level);
  LogSystemInfo();
}

std::shared_ptr<MemoryLog> PluginLogStore() {
  CritScope scope(LogStore().lock);
  return LogStore().store;
}

void ReleasePluginLog() {
  LogMessage::LogToStream(nullptr, LS_NONE);
  CritScope scope(LogStore().lock);
  LogStore().store.reset();
}

}  // namespace mpbp
