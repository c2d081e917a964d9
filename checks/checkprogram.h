// The main function of a program that runs checks.
#ifndef MPBP_CHECKS_CHECKPROGRAM_H_
#define MPBP_CHECKS_CHECKPROGRAM_H_

#include <functional>
#include <string>
#include <vector>

#include "checks/check.h"
#include "checks/commandline.h"

namespace mpbp {

// Exit statuses.
inline constexpr int kAllWell = 0;
inline constexpr int kFaults = 1;
inline constexpr int kUsedWrongly = 2;

struct CheckProgram {
  std::string name;
  std::string version;
  std::string about;                   // for --help: what it does, whole lines
  std::vector<ProgramOption> options;  // its own
  std::vector<std::string> arguments;  // what each argument is called; all of them are needed

  // The checks in their order. For --list and --help the arguments may be missing.
  std::function<std::vector<Check>(const CommandLine& line)> checks;
  // A sentence when the options or arguments are wrong, else "". May be null.
  std::function<std::string(const CommandLine& line)> complaint;
  // The text for --report FILE, `lines` being what was printed. Null: these lines alone.
  std::function<std::string(const std::string& lines)> report;
  // Asked before each check: whether the rest is to be left out. May be null.
  std::function<bool()> interrupted;
};

// Does what the command line says and returns the exit status. Each check's line is printed when it
// has run; of a line that is wrong one line on standard error says why. SIGPIPE should be ignored.
int RunCheckProgram(const CheckProgram& program, int argc, const char* const* argv);

}  // namespace mpbp

#endif  // MPBP_CHECKS_CHECKPROGRAM_H_
