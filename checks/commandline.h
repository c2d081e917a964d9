// The command line of a program that runs checks.
#ifndef MPBP_CHECKS_COMMANDLINE_H_
#define MPBP_CHECKS_COMMANDLINE_H_

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace mpbp {

// An option beside the common ones.
struct ProgramOption {
  std::string name;   // "--url"
  std::string value;  // what its value is called, "URL"; empty for an option without one
  std::string about;  // a line for --help
};

struct CommandLine {
  bool list = false;
  bool json = false;
  bool help = false;
  bool version = false;
  std::set<std::string> only;                  // names of checks; empty for all
  std::string report;                          // a path; empty for none
  std::map<std::string, std::string> options;  // the program's own, by name; "" without a value
  std::vector<std::string> arguments;          // the others, in order; all that follow a "--"
};

// Takes --list, --json, --only NAME,..., --report FILE, --help, --version and `options`; a value
// follows as the next argument or after a "=". Nothing, with a sentence in *error, for a line that
// is not so. Whether the names are those of checks is not looked at.
std::optional<CommandLine> ReadCommandLine(int argc, const char* const* argv,
                                           const std::vector<ProgramOption>& options,
                                           std::string* error);

}  // namespace mpbp

#endif  // MPBP_CHECKS_COMMANDLINE_H_
