#include "enginecheck/engineprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>

#include "base/directoryiterator.h"
#include "base/filestream.h"
#include "base/stringutils.h"
#include "engineprocesses.h"

namespace mpbp::enginecheck {
namespace {

constexpr char kTagVariable[] = "MPBP_ENGINE_CHECK";
constexpr size_t kMostFileBytes = 1 << 20;
constexpr size_t kKeptOutput = 1000;
constexpr int kKillMs = 5000;
constexpr char kShell[] = "/bin/sh";

// Of the children that have ended, whichever engine they belong to.
std::map<pid_t, int>& WaitStatuses() {
  static std::map<pid_t, int> statuses;
  return statuses;
}

void Reap() {
  int status = 0;
  for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) WaitStatuses()[pid] = status;
}

std::string ProcFile(pid_t pid, const char* name) {
  return ReadFileText("/proc/" + std::to_string(pid) + "/" + name, kMostFileBytes);
}

std::vector<pid_t> AllProcesses() {
  std::vector<pid_t> pids;
  DirectoryIterator entries;
  if (!entries.Iterate("/proc/")) return pids;
  do {
    const std::string name = entries.Name();
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error == std::errc() && end == name.data() + name.size()) pids.push_back(pid);
  } while (entries.Next());
  return pids;
}

// /proc/PID/stat: the id, the name in parentheses, which may hold anything, the state, the parent.
std::optional<pid_t> ParentOf(pid_t pid) {
  const std::string stat = ProcFile(pid, "stat");
  const size_t end = stat.rfind(')');
  int parent = 0;
  if (end == std::string::npos || sscanf(stat.c_str() + end, ") %*c %d", &parent) != 1) return {};
  return parent;
}

// What posix_spawn wants, and what it is freed with.
struct SpawnSettings {
  explicit SpawnSettings(int stream) {
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    int error = posix_spawnattr_init(&attributes);
    if (!error) error = posix_spawnattr_setsigdefault(&attributes, &all);
    if (!error) error = posix_spawnattr_setsigmask(&attributes, &none);
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (!error) error = posix_spawnattr_setflags(&attributes, flags);
    if (!error) error = posix_spawn_file_actions_init(&actions);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (!error) error = posix_spawn_file_actions_adddup2(&actions, stream, fd);
    }
    if (!error) error = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    if (!error) error = posix_spawn_file_actions_addchdir_np(&actions, "/");
    failure = error;
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }

  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
  int failure = 0;
};

std::vector<std::string> EnvironmentWith(const std::vector<std::string>& own) {
  std::vector<std::string> environment = own;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    if (std::none_of(own.begin(), own.end(),
                     [&name](const std::string& line) { return line.starts_with(name); })) {
      environment.push_back(text);
    }
  }
  return environment;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// As the plug-in does it: a script without "#!" is the shell's. 0 or an errno value.
int Spawn(const std::string& program, std::vector<std::string> environment, int stream,
          pid_t* pid) {
  const SpawnSettings settings(stream);
  if (settings.failure) return settings.failure;
  std::vector<std::string> words = {program};
  const std::vector<char*> variables = Pointers(environment);
  const auto run = [&](const char* file) {
    const std::vector<char*> arguments = Pointers(words);
    return posix_spawn(pid, file, &settings.actions, &settings.attributes, arguments.data(),
                       variables.data());
  };
  const int error = run(program.c_str());
  if (error != ENOEXEC) return error;
  words.insert(words.begin(), kShell);
  return run(kShell);
}

}  // namespace

std::unique_ptr<EngineProcess> EngineProcess::Start(const std::string& program,
                                                    const std::vector<std::string>& environment,
                                                    int* error) {
  static int starts = 0;
  const std::string tag =
      std::string(kTagVariable) + "=" + std::to_string(getpid()) + "-" + std::to_string(++starts);
  // One end for all three streams: it reads as ended when the last of them was let go of.
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    *error = errno;
    return nullptr;
  }
  UniqueFd own_end(ends[0]);
  const UniqueFd its_end(ends[1]);
  std::vector<std::string> tagged = environment;
  tagged.push_back(tag);
  pid_t pid = 0;
  *error = Spawn(program, EnvironmentWith(tagged), its_end.get(), &pid);
  if (*error != 0) return nullptr;
  WaitStatuses().erase(pid);  // of an earlier one with this number
  return std::unique_ptr<EngineProcess>(new EngineProcess(pid, tag, std::move(own_end)));
}

EngineProcess::~EngineProcess() { Kill(); }

bool EngineProcess::Ended() {
  ReadStreams();  // whoever waits for it keeps it from waiting for room in them
  Reap();
  return WaitStatuses().contains(pid_) && Processes().empty();
}

bool EngineProcess::WaitForEnd(const Deadline& deadline) {
  while (!Ended()) {
    if (deadline.PassedAfterPause()) return false;
  }
  return true;
}

std::string EngineProcess::HowItEnded() const {
  const auto found = WaitStatuses().find(pid_);
  if (found == WaitStatuses().end()) return "";
  const int status = found->second;
  return WIFSIGNALED(status) ? "by signal " + std::to_string(WTERMSIG(status))
                             : "with status " + std::to_string(WEXITSTATUS(status));
}

std::vector<pid_t> EngineProcess::Processes() const {
  Reap();
  std::vector<pid_t> pids;
  // By its number, since a process may keep others from reading its environment.
  if (!WaitStatuses().contains(pid_)) pids.push_back(pid_);
  const std::string entry = '\0' + tag_ + '\0';
  for (const pid_t pid : AllProcesses()) {
    if (pid == pid_ || pid == getpid()) continue;
    if (('\0' + ProcFile(pid, "environ")).find(entry) != std::string::npos) pids.push_back(pid);
  }
  return pids;
}

void EngineProcess::Signal(int number) {
  const std::vector<pid_t> pids = Processes();
  const bool named = std::any_of(pids.begin(), pids.end(), IsNamedAsEngine);
  for (const pid_t pid : pids) {
    if (!named || IsNamedAsEngine(pid)) kill(pid, number);  // fails for one that has ended
  }
}

void EngineProcess::Kill() {
  const Deadline deadline(kKillMs);
  do {
    for (const pid_t pid : Processes()) kill(pid, SIGKILL);
  } while (!Ended() && !deadline.PassedAfterPause());
}

void EngineProcess::ReadStreams() {
  char bytes[4096];
  while (streams_) {
    const ssize_t count = recv(streams_.get(), bytes, sizeof(bytes), MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) streams_.Reset();  // ended, or reset by an end with unread bytes
    if (count > 0) output_.append(bytes, static_cast<size_t>(count));
    if (output_.size() > kKeptOutput) output_.erase(0, output_.size() - kKeptOutput);
  }
}

bool EngineProcess::HasLetGoOfStreams() {
  ReadStreams();
  return !streams_;
}

std::string EngineProcess::Output() {
  ReadStreams();
  return std::string(TrimWhitespace(output_));
}

std::string ProcessName(pid_t pid) { return std::string(TrimWhitespace(ProcFile(pid, "comm"))); }

bool IsNamedAsEngine(pid_t pid) {
  return IsEngineStat(ProcFile(pid, "stat").c_str()).value_or(false);
}

void AdoptOrphans() {
  // Without it the engines are found by their environment alone.
  static_cast<void>(prctl(PR_SET_CHILD_SUBREAPER, 1));
}

void EndAllChildren() {
  const Deadline deadline(kKillMs);
  for (bool any = true; any; any = any && !deadline.PassedAfterPause()) {
    any = false;
    for (const pid_t pid : AllProcesses()) {
      if (ParentOf(pid) != getpid()) continue;
      any = true;
      kill(pid, SIGKILL);
    }
    Reap();
  }
}

}  // namespace mpbp::enginecheck
