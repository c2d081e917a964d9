// port-file: what stands in the file, and who listens there.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "doctor/checks.h"
#include "doctor/files.h"
#include "doctor/processes.h"
#include "portfileutils.h"

namespace mpbp::doctor {
namespace {

constexpr int kMaxPortNumber = 65535;

void AddListener(int port, const std::string& path, CheckResult* result) {
  const std::string where = "port " + std::to_string(port);
  const std::string remove = "rm " + path;
  const auto listener = FindListener(port);
  if (!listener) {
    return result->AddWarning("nobody listens on " + where +
                                  ": the file is left from an engine that is gone; the plug-in "
                                  "starts another one, a second later than without the file",
                              remove);
  }
  if (listener->user != geteuid()) {
    return result->AddFault("a program of user id " + std::to_string(listener->user) +
                                " listens on " + where +
                                ": the file is left from an engine that is gone",
                            remove);
  }
  if (listener->pid == 0) {
    return result->AddOk(where +
                         ", where a process of yours listens that cannot be seen from here");
  }
  const std::string who = listener->name + " (process " + std::to_string(listener->pid) + ")";
  if (!IsEngineName(listener->name)) {
    return result->AddFault(who + " listens on " + where + ", and is no engine by its name",
                            "If it is another program: " + remove +
                                ". If it is the engine: its process must be called "
                                "MurmelParlPlugi, or a page's kill misses it.");
  }
  result->AddOk(where + ", where " + who + " listens");
}

}  // namespace

CheckResult CheckPortFile(const Setup& setup) {
  if (setup.folder.empty()) return Skipped("no folder is known (folder)");
  const std::string path = setup.folder + kPluginPortFileName;
  const std::string remedy = "rm -r " + path + " and start the engine again.";
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOTDIR) return Skipped("there is no such folder (folder)");
    if (errno != ENOENT) return Fault(path + ": " + ErrorText(errno), "See the check folder.");
    return Ok("there is none: no engine has written one, the plug-in starts one when it is wanted");
  }
  if (!S_ISREG(status.st_mode)) {
    return Fault(path + " is " + KindOf(status.st_mode) + " and no regular file", remedy);
  }
  CheckResult result;
  if (status.st_uid != geteuid()) {
    result.AddFault(path + " belongs to user id " + std::to_string(status.st_uid), remedy);
  }
  if (status.st_mode & (S_IRWXG | S_IRWXO)) {
    result.AddFault(path + " has mode " + ModeText(status.st_mode) +
                        ": others can read the cookie that opens the engine",
                    "The engine must make it with mode 0600. Until then: chmod 0600 " + path);
  }
  int port = 0;
  std::string cookie;
  std::string wrong;
  if (!ReadPortFile(path, &port, &cookie)) {
    wrong = " has " + std::to_string(status.st_size) +
            " bytes: it cannot be read, or is shorter than the 20 of port and cookie";
  } else if (port < 1 || port > kMaxPortNumber) {
    wrong = " names the port " + std::to_string(port) +
            ", out of range; the number is 32 bits in the machine's byte order";
  }
  if (wrong.empty()) {
    AddListener(port, path, &result);
  } else {
    result.AddFault(path + wrong, remedy);
  }
  return result;
}

}  // namespace mpbp::doctor
