// log: whether it can be written, and what the last start left in it.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "base/filestream.h"
#include "base/logging.h"
#include "doctor/checks.h"
#include "doctor/files.h"

namespace mpbp::doctor {
namespace {

constexpr size_t kMaxLog = 16 << 20;  // of which errors are counted

struct LogCount {
  int errors = 0;
  int warnings = 0;
  long last_stamp = 0;  // seconds after the start
};

LogCount Count(const std::string& text) {
  LogCount count;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    long seconds = 0;
    int length = 0;
    // "[012:345] Error(file.cc:12): ..."
    if (sscanf(line.c_str(), "[%ld:%*3d] %n", &seconds, &length) < 1 || length == 0) continue;
    count.last_stamp = seconds;
    const std::string_view rest = std::string_view(line).substr(static_cast<size_t>(length));
    if (rest.starts_with("Error(")) ++count.errors;
    if (rest.starts_with("Warning(")) ++count.warnings;
  }
  return count;
}

std::string TimeText(time_t time) {
  struct tm local = {};
  char text[64] = "";
  if (localtime_r(&time, &local)) strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

std::string LevelText(const Setup& setup) {
  const std::string level = setup.Option("pluginppapi_log_level");
  return "level " + (level.empty() ? "LS_INFO" : level);
}

void AddExistingLog(const std::string& path, const struct stat& status, const std::string& level,
                    CheckResult* result) {
  if (S_ISCHR(status.st_mode)) return result->AddOk(path + " is a device, " + level);
  if (!S_ISREG(status.st_mode)) {
    return result->AddFault(path + " is " + KindOf(status.st_mode) + ": no log is written",
                            "Move it away, or set pluginppapi_log_path to another file.");
  }
  if (!MayAccess(path, W_OK)) {
    return result->AddFault(path + " cannot be written: " + ErrorText(errno),
                            "Remove it, or make it yours.");
  }
  if (status.st_mode & (S_IRWXG | S_IRWXO)) {
    result->AddWarning(path + " has mode " + ModeText(status.st_mode) +
                           ": others can read the texts and the cookie in it",
                       "chmod 0600 " + path);
  }
  const LogCount count = Count(ReadFileText(path, kMaxLog));
  result->AddOk(path + ", " + level + ", last start " +
                TimeText(status.st_mtime - count.last_stamp) + ", errors since then: " +
                std::to_string(count.errors) + ", warnings: " + std::to_string(count.warnings));
  if (count.errors > 0) {
    result->AddWarning("",
                       "Read the lines with Error( in it; docs/troubleshooting.md explains "
                       "each.");
  }
}

}  // namespace

CheckResult CheckLog(const Setup& setup) {
  const std::string path = setup.LogPath(kLogName);
  if (path.empty()) return Skipped("no folder is known (folder)");
  CheckResult result;
  if (!setup.Option("pluginppapi_log_path").empty() &&
      !AddWhetherAbsolute("pluginppapi_log_path", path,
                          "it depends on the browser's current folder", &result)) {
    return result;
  }
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    AddExistingLog(path, status, LevelText(setup), &result);
  } else if (errno == ENOENT) {
    if (!setup.Option("pluginppapi_log_path").empty()) AddWhetherItCanBeMade(path, &result);
    if (result.status != CheckStatus::FAULT) {
      result.AddOk(path + " does not exist yet, " + LevelText(setup));
    }
  } else if (errno == ENOTDIR && setup.Option("pluginppapi_log_path").empty()) {
    return Skipped("there is no such folder (folder)");
  } else {
    result.AddFault(path + ": " + ErrorText(errno), "Set pluginppapi_log_path to another file.");
  }
  return result;
}

}  // namespace mpbp::doctor
