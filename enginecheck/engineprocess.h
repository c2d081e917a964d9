// An engine that was started privately: all its processes, whatever they forked.
#ifndef MPBP_ENGINECHECK_ENGINEPROCESS_H_
#define MPBP_ENGINECHECK_ENGINEPROCESS_H_

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "base/uniquefd.h"
#include "enginecheck/deadline.h"

namespace mpbp::enginecheck {

// Started as the plug-in starts engines: in "/", without arguments and descriptors above the
// standard streams, in the session and process group of this process. One thread makes all of
// these.
class EngineProcess {
 public:
  // `environment` ("NAME=value") replaces variables of this process's. Null, with an errno value in
  // *error, when the program cannot be executed.
  static std::unique_ptr<EngineProcess> Start(const std::string& program,
                                              const std::vector<std::string>& environment,
                                              int* error);
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;
  ~EngineProcess();  // Kill

  // Whether none of its processes is left.
  bool Ended();
  // False when it has not ended by then.
  [[nodiscard]] bool WaitForEnd(const Deadline& deadline);
  // How the program itself ended: "with status 1", "by signal 6"; "" when it has not.
  std::string HowItEnded() const;
  // The ids of those that run.
  std::vector<pid_t> Processes() const;
  // To those that a page's kill would find, or to all when it would find none.
  void Signal(int number);
  // SIGKILL to all, and waits for their end.
  void Kill();

  // Whether no process has one of the three standard streams any more.
  [[nodiscard]] bool HasLetGoOfStreams();
  // The last that it printed, without a line feed at the end.
  std::string Output();

 private:
  EngineProcess(pid_t pid, std::string tag, UniqueFd streams)
      : pid_(pid), tag_(std::move(tag)), streams_(std::move(streams)) {}
  void ReadStreams();

  const pid_t pid_;
  const std::string tag_;  // stands in the environment of each of its processes
  UniqueFd streams_;       // none once they were let go of
  std::string output_;
};

// The command name and whether a page's kill would find it by that; empty for no process.
std::string ProcessName(pid_t pid);
bool IsNamedAsEngine(pid_t pid);

// Makes orphans of the engines children of this process, and ends all children of this process,
// theirs too.
void AdoptOrphans();
void EndAllChildren();

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_ENGINEPROCESS_H_
