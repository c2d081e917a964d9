// The plug-in's own log: where it goes, and how it begins.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "base/logging.h"
#include "base/staticobject.h"
#include "base/systeminfo.h"
#include "logutility.h"
#include "optionspersistence.h"
#include "plugin/pluginutils.h"

namespace mpbp {
namespace {

constexpr char kApplicationName[] = "Murmel Parl Plugin";
constexpr char kOrganizationName[] = "Murmel";
constexpr int64_t kBytesPerMebibyte = 1'048'576;

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

// The log's file. That it takes nothing more is told once, to the log's other outputs.
class LogFile final : public FileStream {
 public:
  explicit LogFile(std::string path) : path_(std::move(path)) {}

  StreamResult Write(const void* data, size_t length, size_t* written, int* error) override {
    int reason = 0;
    const StreamResult result = FileStream::Write(data, length, written, &reason);
    if (result != StreamResult::SR_ERROR) return result;
    if (error) *error = reason;
    // Comes back here with that line.
    if (!std::exchange(told_, true)) {
      LOG_ERR_EX(LS_WARNING, reason) << "The log file cannot be written, path=" << path_;
    }
    return result;
  }

 private:
  const std::string path_;
  bool told_ = false;
};

// Empty without a value; `options` is only read.
std::string GetOption(OptionsPersistenceInterface& options, const std::string& name) {
  std::string value;
  return options.GetStringValue(name, &value) ? value : std::string();
}

// Where the log goes; empty when there is no place for it.
Pathname LogPath(const std::string& configured, const std::string& default_file_name,
                 LogPathMeans path_means, const Pathname& folder) {
  if (!configured.empty()) {
    Pathname path(ReplaceTimestamp(configured));
    if (path_means == LogPathMeans::FOLDER_OF) path.SetFilename(default_file_name);
    return path;
  }
  LOG(LS_INFO) << "No bp log location saved, using default.";
  if (!folder.empty()) return Pathname(folder.folder(), default_file_name);
  LOG(LS_WARNING) << "There is no configuration folder: no log file is written";
  return {};
}

void OpenLog(const Pathname& path, int level) {
  int error = 0;
  if (!Filesystem::CreateFolder(path.folder(), 0700, &error)) {
    LOG(LS_ERROR) << "Unable to create directory for logfile: " << path.pathname();
    LOG_ERR_EX(LS_WARNING, error) << "The log file's folder cannot be made, path=" << path.folder();
  }
  auto file = std::make_shared<LogFile>(path.pathname());
  std::shared_ptr<MemoryLog> store = GetOrCreateLogStore();
  if (!file->Open(path.pathname(), "w", &error) || !file->DisableBuffering()) {
    LOG(LS_ERROR) << "Unable to write to logfile:" << path.pathname();
    LOG_ERR_EX(LS_WARNING, error) << "The log file cannot be opened, path=" << path.pathname();
    return;
  }
  LogMessage::LogToStream(std::move(file), level);
  LogMessage::AddLogToStream(std::move(store), level);
}

// Local time with its zone, which the lines' own stamps count from.
std::string TimeNow() {
  const time_t now = time(nullptr);
  tm local{};
  char text[64] = "";
  if (localtime_r(&now, &local)) strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z (%Z)", &local);
  return text;
}

// Only the options that the plug-in knows: what else the file holds may be anybody's secret.
void LogOptions(const std::string& prefix, const std::string& options_path,
                const Pathname& log_path) {
  const bool is_there = access(options_path.c_str(), F_OK) == 0 || errno != ENOENT;
  if (!is_there) LOG(LS_INFO) << "There is no options file, path=" << options_path;
  // Read once more, as what was wrong with it when the log's options were read is in no log yet.
  const auto options = is_there ? CreateOptionsPersistence() : nullptr;
  const auto tell = [&](const std::string& name, const std::string& otherwise) {
    const std::string value = options ? GetOption(*options, name) : std::string();
    LOG(LS_INFO) << "Option " << name << "=" << (value.empty() ? otherwise : value)
                 << (value.empty() ? " (default)" : "");
  };
  tell("install_dir", kDefaultInstallDir);
  tell("plugin_enable_corp_host", "0");
  tell("prompt_delivery", "0");
  tell(prefix + "_log_level", "LS_INFO");
  tell(prefix + "_log_path", log_path.pathname());
}

// What a reader needs before everything else.
void LogBegin(const std::string& prefix, const std::string& version,
              const std::string& options_path, const Pathname& log_path) {
  LOG(LS_INFO) << "Log begun " << TimeNow() << ", version " << version << ", process " << getpid();
  if (options_path.empty()) return;  // that there is no folder was said already
  const std::string folder = Pathname(options_path).folder();
  LOG(LS_INFO) << "Configuration folder: " << folder;
  if (!folder.starts_with('/')) {
    LOG(LS_WARNING) << "The configuration folder is relative, by XDG_CONFIG_HOME or HOME: "
                       "MurmelParlPlugin runs in / and looks for another one, path="
                    << folder;
  }
  LogOptions(prefix, options_path, log_path);
}

void LogSystemInfo() {
  const SystemInfo info = SystemInfo::Gather();
  LOG(LS_INFO) << "Cpu: " << info.cpu.family << "." << info.cpu.model << "." << info.cpu.stepping
               << ", x" << info.cpu.processors << ", " << info.max_cpu_mhz << "Mhz, "
               << info.memory_bytes / kBytesPerMebibyte << "MB";
  LOG(LS_INFO) << "Computer model: " << info.model;
}

}  // namespace

void SetupPluginLogging(const std::string& prefix, const std::string& default_file_name,
                        const std::string& version, LogPathMeans path_means) {
  Filesystem::SetApplicationName(kApplicationName);
  Filesystem::SetOrganizationName(kOrganizationName);
  const auto options = CreateOptionsPersistence();
  const std::string level_name = GetOption(*options, prefix + "_log_level");
  const int level = level_name.empty() ? LS_INFO : LogMessage::SeverityFromName(level_name);
  LogMessage::LogToDebug(std::min<int>(level, LS_INFO));
  Pathname folder;
  const std::string options_path = Filesystem::GetAppDataFolder(&folder, true)
                                       ? Pathname(folder.folder(), kOptionsFile).pathname()
                                       : std::string();
  const Pathname path =
      LogPath(GetOption(*options, prefix + "_log_path"), default_file_name, path_means, folder);
  LogMessage::LogTimestamps(true);
  if (level >= LS_NONE) {
    LOG(LS_WARNING) << "Unknown level \"" << level_name << "\" in " << prefix << "_log_level of "
                    << options_path << ": nothing is written to " << path.pathname();
  }
  if (!path.empty()) OpenLog(path, level);
  LogBegin(prefix, version, options_path, path);
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
