// The port file: what it looks like, how it comes, and how it goes.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "enginecheck/enginechecks.h"

namespace mpbp::enginecheck {
namespace {

constexpr char kPortFileRemedy[] = "See \"Port file\" in docs/wire-format.md.";
// Of an engine that replaced this one's.
constexpr char kOthersPortFile[] = "\x09\0\0\0of-another-maker";

std::string Octal(unsigned mode) {
  char text[16];
  snprintf(text, sizeof(text), "%04o", mode);
  return text;
}

}  // namespace

CheckResult CheckPortFileNew(Trial& trial) {
  CheckResult blocked;
  if (!trial.Engine(&blocked)) return blocked;
  if (!trial.starts().front().written_in_place) return Ok("an old port file was replaced");
  return Fault(
      "The old port file was written into: who had it open reads the new cookie",
      "Write a new file, made exclusively (O_EXCL), and rename it to the port file's name.");
}

CheckResult CheckPortFileMode(Trial& trial) {
  CheckResult blocked;
  if (!trial.Engine(&blocked)) return blocked;
  struct stat status {};
  if (lstat(trial.folder().PortFile().c_str(), &status) != 0) {
    return Fault("The port file is gone while the engine runs", kPortFileRemedy);
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    return Fault("The port file is no file of this user", kPortFileRemedy);
  }
  const unsigned mode = status.st_mode & 07777U;
  if (mode == 0600) return Ok("0600");
  return Fault("The port file has the mode " + Octal(mode) + ": who reads the cookie is let in",
               "Create it with mode 0600, whatever the umask is.");
}

CheckResult CheckPortFileForm(Trial& trial) {
  CheckResult blocked;
  if (!trial.Engine(&blocked)) return blocked;
  const Start& start = trial.starts().front();
  if (start.form_problem.empty()) {
    return Ok("port " + std::to_string(start.address.port) + " and a cookie, in " +
              std::to_string(start.port_file.size()) + " bytes");
  }
  return trial.Blocked("port-file-form", "The port file cannot be used: " + start.form_problem,
                       "Listen on 127.0.0.1 first; then write the port as a 32-bit number of this "
                       "machine's byte order, and 16 bytes of cookie.");
}

CheckResult CheckPortFileEnd(Trial& trial) {
  CheckResult blocked;
  if (!trial.Terminate(&blocked)) return blocked;
  if (access(trial.folder().PortFile().c_str(), F_OK) == 0) {
    return Fault("The engine ended on SIGTERM and left its port file",
                 "Remove it before the end: it costs the next page a failed connect and a start.");
  }
  if (!trial.Engine(&blocked)) return blocked;
  const std::string other(kOthersPortFile, sizeof(kOthersPortFile) - 1);
  if (!trial.folder().ReplacePortFile(other)) return Skipped("no file could be put in its place");
  if (!trial.Terminate(&blocked)) return blocked;
  if (trial.folder().ReadPortFile() == other) {
    return Ok("removed at the end, another engine's is left alone");
  }
  return Fault("The engine removed a port file that another one had put in the place of its own",
               "Compare the file with what was written before removing it.");
}

CheckResult CheckFreshCookie(Trial& trial) {
  CheckResult blocked;
  if (!trial.Engine(&blocked)) return blocked;
  if (trial.starts().size() < 2 && (!trial.Terminate(&blocked) || !trial.Engine(&blocked))) {
    return blocked;
  }
  const auto& starts = trial.starts();
  const std::string& last = starts.back().address.cookie;
  if (last.empty()) return Skipped("there is no cookie");
  for (size_t i = 0; i + 1 < starts.size(); ++i) {
    if (starts[i].address.cookie != last) continue;
    return Fault("Two starts had the same cookie",
                 "Take 16 bytes of the system's random source at each start.");
  }
  return Ok("another one at each of " + std::to_string(starts.size()) + " starts");
}

}  // namespace mpbp::enginecheck
