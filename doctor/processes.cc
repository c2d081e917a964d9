#include "doctor/processes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "base/directoryiterator.h"
#include "base/filestream.h"
#include "engineprocesses.h"

namespace mpbp::doctor {
namespace {

constexpr size_t kMaxProcFile = 4 << 20;
constexpr size_t kNameLength = 15;   // TASK_COMM_LEN of Linux less its NUL
constexpr char kListening[] = "0A";  // TCP_LISTEN of Linux

std::vector<int> AllPids() {
  std::vector<int> pids;
  DirectoryIterator entries;
  if (!entries.Iterate("/proc/")) return pids;
  do {
    const std::string name = entries.Name();
    int pid = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (read.ec == std::errc() && read.ptr == name.data() + name.size()) pids.push_back(pid);
  } while (entries.Next());
  return pids;
}

std::string ProcFolder(int pid) { return "/proc/" + std::to_string(pid) + "/"; }

long Uptime() { return strtol(ReadFileText("/proc/uptime", 64).c_str(), nullptr, 10); }

// Whether the address of a line of /proc/net/tcp or tcp6, in hexadecimal, is one that a connection
// to 127.0.0.1 reaches. Of IPv6 those that stand for any address, and IPv4 in IPv6.
bool IsReachedByLoopback(const std::string& address) {
  const bool v6 = address.size() == 32;
  if (v6 && address.find_first_not_of('0') == std::string::npos) return true;
  if (v6 && !address.starts_with("0000000000000000FFFF0000")) return false;
  const std::string v4 = v6 ? address.substr(24) : address;
  // 127.x.y.z in the byte order of the host, which is little-endian.
  return v4 == "00000000" || v4.ends_with("7F");
}

// The socket's inode and owner. The columns are those of proc(5): number, local address, remote
// address, state, queues, timer, retransmits, user, time-out, inode.
struct ListeningSocket {
  uid_t user = 0;
  std::string inode;
};

std::optional<ListeningSocket> FindListeningSocket(const char* table, int port) {
  std::istringstream lines(ReadFileText(table, kMaxProcFile));
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string number, local, remote, state, queues, timer, retransmits, timeout;
    ListeningSocket socket;
    if (!(words >> number >> local >> remote >> state >> queues >> timer >> retransmits >>
          socket.user >> timeout >> socket.inode)) {
      continue;
    }
    const size_t colon = local.find(':');
    if (state == kListening && colon != std::string::npos &&
        strtol(local.c_str() + colon + 1, nullptr, 16) == port &&
        IsReachedByLoopback(local.substr(0, colon))) {
      return socket;
    }
  }
  return std::nullopt;
}

bool HasOpen(int pid, const std::string& target) {
  const std::string folder = ProcFolder(pid) + "fd/";
  DirectoryIterator entries;
  if (!entries.Iterate(folder)) return false;
  do {
    char link[PATH_MAX];
    const ssize_t length = readlink((folder + entries.Name()).c_str(), link, sizeof(link));
    if (length > 0 && std::string_view(link, static_cast<size_t>(length)) == target) return true;
  } while (entries.Next());
  return false;
}

}  // namespace

std::optional<ProcessInfo> FindProcess(int pid) {
  const std::string stat_text = ReadFileText(ProcFolder(pid) + "stat", 4096);
  // The name stands in parentheses and may hold some itself.
  const size_t begin = stat_text.find('(');
  const size_t end = stat_text.rfind(')');
  struct stat status = {};
  if (begin == std::string::npos || end == std::string::npos || end < begin ||
      stat(ProcFolder(pid).c_str(), &status) != 0) {
    return std::nullopt;
  }
  ProcessInfo process;
  process.pid = pid;
  process.user = status.st_uid;
  process.name = stat_text.substr(begin + 1, end - begin - 1);
  std::istringstream words(stat_text.substr(end + 1));
  words >> process.state >> process.parent;
  // From the 5th to the 21st column; the 22nd is the start, in clock ticks after the system's.
  std::string skipped;
  for (int column = 5; column <= 21; ++column) words >> skipped;
  long ticks = 0;
  words >> ticks;
  process.age_seconds = std::max(0L, Uptime() - ticks / std::max(1L, sysconf(_SC_CLK_TCK)));
  return process;
}

std::vector<int> FindDescendants() {
  std::multimap<int, int> children;
  for (const int pid : AllPids()) {
    if (const auto process = FindProcess(pid)) children.emplace(process->parent, pid);
  }
  std::vector<int> found = {getpid()};
  for (size_t next = 0; next < found.size(); ++next) {
    const auto [first, last] = children.equal_range(found[next]);
    for (auto child = first; child != last; ++child) found.push_back(child->second);
  }
  found.erase(found.begin());
  return found;
}

bool IsEngineName(const std::string& name) {
  return name == std::string_view(kEngineName).substr(0, kNameLength);
}

std::optional<Listener> FindListener(int port) {
  auto socket = FindListeningSocket("/proc/net/tcp", port);
  if (!socket) socket = FindListeningSocket("/proc/net/tcp6", port);
  if (!socket) return std::nullopt;
  Listener listener;
  listener.user = socket->user;
  for (const int pid : AllPids()) {
    if (!HasOpen(pid, "socket:[" + socket->inode + "]")) continue;
    listener.pid = pid;
    if (const auto process = FindProcess(pid)) listener.name = process->name;
    break;
  }
  return listener;
}

}  // namespace mpbp::doctor
