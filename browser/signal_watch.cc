#include "browser/signal_watch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace mpbp {
namespace {

// A handler may not do more than write to a pipe. Blocking the signals and reading them from a
// descriptor is no choice: the browser engine's processes would inherit the mask and could not be
// ended.
int g_pipe[2] = {-1, -1};

void HandleSignal(int) {
  const int saved_errno = errno;
  const char byte = 0;
  // A full pipe already holds what the reader needs.
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], &byte, 1);
  errno = saved_errno;
}

void SetHandler(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM}) {
    if (sigaction(number, &action, nullptr) != 0) perror("mpbp-browser: sigaction");
  }
}

}  // namespace

SignalWatch::SignalWatch(std::function<void()> on_signal) : on_signal_(std::move(on_signal)) {
  if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    perror("mpbp-browser: pipe2");
    return;
  }
  notifier_ = std::make_unique<QSocketNotifier>(g_pipe[0], QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
    char bytes[64];
    while (read(g_pipe[0], bytes, sizeof(bytes)) > 0) continue;
    on_signal_();
  });
  SetHandler(HandleSignal);
}

SignalWatch::~SignalWatch() {
  if (!notifier_) return;
  SetHandler(SIG_DFL);
  notifier_.reset();
  for (int& fd : g_pipe) {
    close(fd);
    fd = -1;
  }
}

}  // namespace mpbp
