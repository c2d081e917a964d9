// module: whether a browser could load it.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>

#include "base/filestream.h"
#include "base/stringutils.h"
#include "doctor/checks.h"
#include "doctor/files.h"
#include "doctor/programs.h"
#include "plugin/mpbp/common/version.h"

namespace mpbp::doctor {
namespace {

// What a browser of this interface looks for in a module.
constexpr const char* kExports[] = {"PPP_InitializeModule", "PPP_GetInterface",
                                    "PPP_ShutdownModule"};
constexpr size_t kMaxModule = 64 << 20;
constexpr int kLoadMs = 5000;

// What is wrong, for a person; empty when it loads. In a process of its own: a broken module may
// end the one that loads it.
std::string LoadingComplaint(const std::string& path) {
  void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    const char* const why = dlerror();
    return why ? why : "it cannot be loaded";
  }
  for (const char* const name : kExports) {
    if (!dlsym(module, name)) return std::string("it does not export ") + name;
  }
  return {};
}

CheckResult Load(const std::string& path) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return Fault(ErrorText(errno), "Try again.");
  const UniqueFd reading(fds[0]);
  UniqueFd writing(fds[1]);
  const pid_t child = fork();
  if (child == 0) {
    const std::string complaint = LoadingComplaint(path);
    const ssize_t told = write(writing.get(), complaint.data(), complaint.size());
    _exit(told == static_cast<ssize_t>(complaint.size()) ? 0 : 1);
  }
  if (child < 0) return Fault(ErrorText(errno), "Try again.");
  writing.Reset();
  const Deadline deadline(kLoadMs);
  const std::string complaint = ReadBytes(reading, 4096, deadline);
  const auto status = WaitForEnd(child, deadline);
  if (!status) {
    kill(child, SIGKILL);
    WaitForEnd(child, Deadline(kLoadMs));
  }
  if (!complaint.empty()) {
    return Fault(path + " cannot be loaded: " + complaint,
                 complaint.find("cannot open shared object file") != std::string::npos
                     ? "Install the library that it names; a module built on one Debian release "
                       "does not load on another."
                     : "Install the plug-in's package again.");
  }
  if (!status || !WIFEXITED(*status)) {
    return Fault(path + " ends the process that loads it, or holds it up",
                 "Install the plug-in's package again.");
  }
  return {};
}

bool IsVersionText(const std::string& text) {
  const auto is_digit = [](char c) { return isdigit(static_cast<unsigned char>(c)) != 0; };
  return !text.empty() && is_digit(text.front()) && is_digit(text.back()) &&
         std::count(text.begin(), text.end(), ',') == 3;
}

}  // namespace

std::string ModuleVersion(const std::string& module) {
  // It stands in the module as "5, 1, 7, 0", with no text before and a NUL behind.
  const std::string bytes = ReadFileText(module, kMaxModule);
  constexpr char kCharacters[] = "0123456789, ";
  for (size_t comma = bytes.find(", "); comma != std::string::npos;
       comma = bytes.find(", ", comma + 1)) {
    const size_t begin = bytes.find_last_not_of(kCharacters, comma) + 1;
    const size_t end = std::min(bytes.find_first_not_of(kCharacters, comma), bytes.size());
    const bool alone = begin > 0 && !isprint(static_cast<unsigned char>(bytes[begin - 1])) &&
                       end < bytes.size() && bytes[end] == '\0';
    const std::string text = bytes.substr(begin, end - begin);
    if (alone && IsVersionText(text)) return ReplaceAll(ReplaceAll(text, " ", ""), ",", ".");
  }
  return {};
}

CheckResult CheckModule(const Setup& setup) {
  const std::string& path = setup.module;
  if (path.empty()) {
    return Fault(std::string(kModuleName) + " is not beside this program",
                 "Install the plug-in's package, or say --module FILE.");
  }
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !MayAccess(path, R_OK)) {
    return Fault(path + ": " + ErrorText(errno), "Install the plug-in's package again.");
  }
  if (!S_ISREG(status.st_mode)) {
    return Fault(path + " is " + KindOf(status.st_mode) + " and no library",
                 "Install the plug-in's package again.");
  }
  CheckResult result = Load(path);
  if (result.status == CheckStatus::FAULT) return result;
  if (path.find_first_of(",;#") != std::string::npos) {
    result.AddFault(path + " holds a comma, a semicolon or a #: browsers cannot be told of it",
                    "Move it to a folder without these.");
  }
  const std::string version = ModuleVersion(path);
  if (!version.empty() && version != PluginVersion()) {
    result.AddWarning(path + " is of version " + version + ", this program of " + PluginVersion(),
                      "Install both from the same release.");
  }
  if (result.message.empty()) {
    result.AddOk(path + (version.empty() ? "" : ", version " + version) +
                 ", loads with its libraries and three exports");
  }
  return result;
}

}  // namespace mpbp::doctor
