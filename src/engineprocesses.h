// Finding and signalling the engine processes of this machine, through /proc.
//
// An engine is a process whose command name begins with the 15 characters that the kernel keeps of
// "MurmelParlPlugin". Processes with ids up to 999 never count as engines, nor does this one.
// From any thread; no state is kept. Problems with a single process are logged and it is left out.
#ifndef MPBP_ENGINEPROCESSES_H_
#define MPBP_ENGINEPROCESSES_H_

#include <optional>
#include <vector>

namespace mpbp {

inline constexpr char kEngineName[] = "MurmelParlPlugin";

// Whether the process that a /proc/PID/stat text, or its beginning, is about is an engine. Nothing
// when the text does not begin with an id and a name. Ends at a NUL.
[[nodiscard]] std::optional<bool> IsEngineStat(const char* stat);

// Appends the ids of the running engine processes, in the order of the directory. Without
// `skip_self` this process may be among them.
void FindEngineProcesses(bool skip_self, std::vector<int>* pids);

// Writes the ids into the log.
void LogEngineProcesses();

// Sends SIGKILL when `immediate` is set, else SIGTERM. False when it could not be sent, and for an
// id that is not positive: those name groups of processes.
[[nodiscard]] bool SignalProcess(int pid, bool immediate);

// Signals every engine process and returns how many were signalled. `skip_self` is logged only:
// this process is never signalled. Does not wait for the processes to end.
int KillEngineProcesses(bool skip_self, bool immediate);

}  // namespace mpbp

#endif  // MPBP_ENGINEPROCESSES_H_
