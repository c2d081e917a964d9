#include "doctor/programs.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>

#include "doctor/processes.h"

namespace mpbp::doctor {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPoll = std::chrono::milliseconds(10);
constexpr int kEndMs = 1000;

volatile sig_atomic_t interrupted = 0;

// What posix_spawn is told; freed on every way out.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes_, &defaults);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_addchdir_np(&actions_, "/");
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }

  void Use(int fd, int as) { posix_spawn_file_actions_adddup2(&actions_, fd, as); }
  void Open(const std::string& path, int flags, int as) {
    posix_spawn_file_actions_addopen(&actions_, as, path.c_str(), flags, 0600);
  }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

bool MakePipe(UniqueFd* reading, UniqueFd* writing) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return false;
  reading->Reset(fds[0]);
  writing->Reset(fds[1]);
  return true;
}

void Reap() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

bool AllEnd(const Deadline& deadline) {
  for (;;) {
    Reap();
    if (FindDescendants().empty()) return true;
    if (deadline.Passed()) return false;
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace

Deadline::Deadline(int ms) : end_(Clock::now() + std::chrono::milliseconds(ms)) {}

int Deadline::LeftMs() const {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
  return Interrupted() ? 0 : static_cast<int>(std::max<int64_t>(0, left.count()));
}

void CareForProcess() {
  signal(SIGPIPE, SIG_IGN);
  struct sigaction action = {};
  action.sa_handler = [](int) { interrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one ends the process
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

bool Interrupted() { return interrupted != 0; }

std::optional<Program> StartProgram(const std::string& path, const std::vector<std::string>& args,
                                    bool pipes, const std::string& error_path, int* error) {
  SpawnSettings settings;
  Program program;
  UniqueFd its_input;
  UniqueFd its_output;
  if (pipes) {
    if (!MakePipe(&its_input, &program.input) || !MakePipe(&program.output, &its_output)) {
      *error = errno;
      return std::nullopt;
    }
    fcntl(program.output.get(), F_SETFL, O_NONBLOCK);
    settings.Use(its_input.get(), STDIN_FILENO);
    settings.Use(its_output.get(), STDOUT_FILENO);
  } else {
    settings.Open("/dev/null", O_RDONLY, STDIN_FILENO);
    settings.Open("/dev/null", O_WRONLY, STDOUT_FILENO);
  }
  settings.Open(error_path.empty() ? "/dev/null" : error_path, O_WRONLY | O_CREAT, STDERR_FILENO);
  std::vector<char*> argv = {const_cast<char*>(path.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  *error = posix_spawn(&program.pid, path.c_str(), settings.actions(), settings.attributes(),
                       argv.data(), environ);
  if (*error != 0) return std::nullopt;
  return program;
}

std::string ReadBytes(const UniqueFd& output, size_t size, const Deadline& deadline) {
  std::string bytes;
  char buffer[4096];
  while (bytes.size() < size) {
    const ssize_t count = read(output.get(), buffer, std::min(sizeof(buffer), size - bytes.size()));
    if (count > 0) {
      bytes.append(buffer, static_cast<size_t>(count));
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR) || deadline.Passed()) {
      break;
    } else {
      pollfd readable = {output.get(), POLLIN, 0};
      static_cast<void>(poll(&readable, 1, deadline.LeftMs()));  // the next read says what came
    }
  }
  return bytes;
}

std::optional<int> WaitForEnd(pid_t pid, const Deadline& deadline) {
  for (;;) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return status;
    if (deadline.Passed()) return std::nullopt;
    std::this_thread::sleep_for(kPoll);
  }
}

std::string EndText(int status) {
  if (WIFSIGNALED(status)) return "was ended by signal " + std::to_string(WTERMSIG(status));
  return "ended with status " + std::to_string(WEXITSTATUS(status));
}

void EndDescendants() {
  for (const int pid : FindDescendants()) kill(pid, SIGTERM);
  if (AllEnd(Deadline(kEndMs))) return;
  // Those that start others meanwhile are met in the next round.
  for (int round = 0; round < 100; ++round) {
    for (const int pid : FindDescendants()) kill(pid, SIGKILL);
    Reap();
    if (FindDescendants().empty()) return;
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace mpbp::doctor
