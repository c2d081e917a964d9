// Processes and listening sockets, as /proc has them.
#ifndef MPBP_DOCTOR_PROCESSES_H_
#define MPBP_DOCTOR_PROCESSES_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace mpbp::doctor {

struct ProcessInfo {
  int pid = 0;
  int parent = 0;
  char state = '?';  // of proc(5); 'Z' has ended and was not reaped
  uid_t user = 0;
  std::string name;      // at most 15 characters
  long age_seconds = 0;  // since its start
};

// Nothing when there is no such process.
std::optional<ProcessInfo> FindProcess(int pid);

// All that descend from this process. An orphan among them counts when this process adopts orphans.
std::vector<int> FindDescendants();

// Who listens on a TCP port of the loopback interface.
struct Listener {
  uid_t user = 0;
  int pid = 0;  // 0 when it is another user's, whose descriptors cannot be seen
  std::string name;
};

std::optional<Listener> FindListener(int port);

// Whether a process of this name counts as an engine: the kernel keeps 15 characters of its
// program's name.
bool IsEngineName(const std::string& name);

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_PROCESSES_H_
