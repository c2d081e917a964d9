// Programs that the doctor starts, and their end.
#ifndef MPBP_DOCTOR_PROGRAMS_H_
#define MPBP_DOCTOR_PROGRAMS_H_

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/uniquefd.h"

namespace mpbp::doctor {

// A moment up to which something is waited for, or until the user interrupts.
class Deadline {
 public:
  explicit Deadline(int ms);
  bool Passed() const { return LeftMs() == 0; }
  int LeftMs() const;  // 0 once it has passed, or after an interrupt

 private:
  std::chrono::steady_clock::time_point end_;
};

// Sets the signals of the process: SIGPIPE is ignored; the first SIGINT, SIGTERM or SIGHUP lets
// every Deadline pass. Orphans of what this process starts become its children. Once, at the start.
void CareForProcess();
bool Interrupted();

struct Program {
  pid_t pid = 0;
  UniqueFd input;   // for writing; none unless it was asked for
  UniqueFd output;  // for reading, non-blocking; none unless it was asked for
};

// Starts the program at `path` in the folder "/", with this process's environment. Without `pipes`
// its input and output are /dev/null. Its standard error goes to the file `error_path`, which is
// made, or to /dev/null when that is empty. Nothing, with an errno value in *error, when it cannot
// be run.
std::optional<Program> StartProgram(const std::string& path, const std::vector<std::string>& args,
                                    bool pipes, const std::string& error_path, int* error);

// Reads until `size` bytes are there, or to the end; what there is when the time is up.
std::string ReadBytes(const UniqueFd& output, size_t size, const Deadline& deadline);

// Its status as of waitpid; nothing while it runs.
std::optional<int> WaitForEnd(pid_t pid, const Deadline& deadline);

// "ended with status 3" or "was ended by signal 11".
std::string EndText(int status);

// Ends everything that descends from this process: SIGTERM, and SIGKILL after a second.
void EndDescendants();

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_PROGRAMS_H_
