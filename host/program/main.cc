// mpbp-host: a page with the plug-in, for people who want to try the plug-in or an engine by hand.
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/host.h"
#include "host/program/arguments.h"
#include "host/program/console.h"

namespace {

using mpbp::host::Arguments;
using mpbp::host::Console;
using mpbp::host::Host;

int stop_fd = -1;

void OnStopSignal(int /*signal*/) {
  const uint64_t one = 1;
  // The only possible failure is a full counter, and then the loop stops already.
  [[maybe_unused]] const ssize_t written = write(stop_fd, &one, sizeof one);
}

bool CatchStopSignals() {
  stop_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  struct sigaction action = {};
  action.sa_handler = &OnStopSignal;
  return stop_fd >= 0 && sigaction(SIGINT, &action, nullptr) == 0 &&
         sigaction(SIGTERM, &action, nullptr) == 0;
}

int Fail(int status, const std::string& text) {
  std::fprintf(stderr, "mpbp-host: %s\n", text.c_str());
  return status;
}

// Must come before the module is loaded, which may read its settings at once.
std::optional<std::string> UseProfile(const std::string& folder) {
  if (folder.empty()) return std::nullopt;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const auto path = error ? std::filesystem::path() : std::filesystem::canonical(folder, error);
  if (!error && !std::filesystem::is_directory(path, error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) return "cannot use the profile " + folder + ": " + error.message();
  setenv("XDG_CONFIG_HOME", path.c_str(), 1);
  return std::nullopt;
}

std::string ModuleBesideProgram() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (error ? std::filesystem::path(".") : program.parent_path()) / "libmpbppapiplugin.so";
}

// Prints what the module left behind and did wrong. True when there was none of it.
bool Report(const Host& host) {
  const auto misuses = host.Misuse();
  std::printf("references leaked: %zu, misuses: %zu\n", host.leaked(), misuses.size());
  for (const auto& text : host.LeakedVars()) std::printf("leaked var: %s\n", text.c_str());
  for (const auto& text : host.LeakedResources()) {
    std::printf("leaked resource: %s\n", text.c_str());
  }
  for (const auto& text : misuses) std::printf("misuse: %s\n", text.c_str());
  return host.leaked() == 0 && misuses.empty();
}

int Run(const Arguments& arguments) {
  if (const auto error = UseProfile(arguments.profile)) return Fail(1, *error);
  if (!CatchStopSignals()) return Fail(1, "cannot catch signals");
  Host host(arguments.host);
  const auto error = host.Load(arguments.module.empty() ? ModuleBesideProgram() : arguments.module);
  if (error) return Fail(1, *error);
  bool accepted = false;
  {
    Console console(host, arguments.url, STDIN_FILENO, arguments.linger_seconds);
    accepted = console.Open();
    if (accepted) console.Run(stop_fd);
    host.Unload();
  }
  return Report(host) && accepted ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Arguments arguments;
  const std::span<char* const> words(argv, static_cast<size_t>(argc));
  if (const auto error = ParseArguments(words.subspan(argc > 0 ? 1 : 0), arguments)) {
    return Fail(2, *error + "; see mpbp-host --help");
  }
  if (arguments.help) {
    std::fputs(mpbp::host::kUsage, stdout);
    return 0;
  }
  return Run(arguments);
}
