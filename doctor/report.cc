#include "doctor/report.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <sstream>

#include "base/filestream.h"
#include "base/uniquefd.h"
#include "checks/checkoutput.h"
#include "doctor/checks.h"
#include "plugin/mpbp/common/version.h"
#include "portfileutils.h"

namespace mpbp::doctor {
namespace {

constexpr size_t kLogLines = 200;
constexpr off_t kLogBytes = 4 << 20;  // the end of a log in which these lines are looked for

std::string Section(const std::string& title, const std::string& text) {
  return "\n== " + title + "\n" + (text.empty() ? "(nothing)\n" : text);
}

std::string Now() {
  const time_t now = time(nullptr);
  struct tm local = {};
  char text[64] = "";
  if (localtime_r(&now, &local)) strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S %z", &local);
  return text;
}

// The distribution's name for people.
std::string SystemName() {
  std::istringstream lines(ReadFileText("/etc/os-release", 65536));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("PRETTY_NAME=")) return line.substr(12);
  }
  return "unknown";
}

std::string Versions(const Setup& setup) {
  utsname system = {};
  uname(&system);
  const auto known = [](const std::string& version) { return version.empty() ? "none" : version; };
  return "mpbp-doctor " + PluginVersion() + ", " + Now() +
         "\nmodule: " + known(ModuleVersion(setup.module)) +
         "\nconnector: " + known(setup.connector.empty() ? "" : ProgramVersion(setup.connector)) +
         "\nsystem: " + SystemName() + ", " + system.sysname + " " + system.release + ", " +
         system.machine + "\n";
}

// The values of known options; an unknown one may be a password that stands in the wrong file.
std::string Options(const Setup& setup) {
  std::string text;
  for (const char* const name : kOptionNames) {
    const std::string value = setup.Option(name);
    if (!value.empty()) text += std::string(name) + "=" + value + "\n";
  }
  return text;
}

std::string LogEnd(const std::string& path) {
  // A FIFO in its place must not hold this up.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  const off_t begin = std::max<off_t>(0, status.st_size - kLogBytes);
  std::string text(static_cast<size_t>(status.st_size - begin), '\0');
  const ssize_t count = pread(file.get(), text.data(), text.size(), begin);
  text.resize(static_cast<size_t>(std::max<ssize_t>(0, count)));
  return RedactLog(text, kLogLines);
}

// As it stands in the file, when it can be read in a log.
std::string Cookie(const Setup& setup) {
  int port = 0;
  std::string cookie;
  if (setup.folder.empty() || !ReadPortFile(setup.folder + kPluginPortFileName, &port, &cookie)) {
    return {};
  }
  for (const char c : cookie) {
    if (!isgraph(static_cast<unsigned char>(c))) return {};
  }
  return cookie;
}

}  // namespace

std::string MakeReport(const Setup& setup, const NameRedaction& names, const std::string& lines) {
  NameRedaction secrets = names;
  secrets.Add(Cookie(setup), "COOKIE");
  return Printable(secrets.Apply(
      Versions(setup) + Section("checks", lines) + Section("options", Options(setup)) +
      Section("the end of the module's log", LogEnd(setup.LogPath(kLogName))) +
      Section("the end of the connector's log", LogEnd(setup.LogPath(kConnectorLogName)))));
}

}  // namespace mpbp::doctor
