// SIGINT and SIGTERM, delivered to the event loop.
#ifndef MPBP_BROWSER_SIGNAL_WATCH_H_
#define MPBP_BROWSER_SIGNAL_WATCH_H_

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace mpbp {

// At most one exists at a time. A signal that arrives before the event loop runs is not lost.
class SignalWatch {
 public:
  // `on_signal` is called on the event loop for each signal or run of signals. When the watch
  // cannot be set up the signals keep their default effect, and that is said on stderr.
  explicit SignalWatch(std::function<void()> on_signal);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

 private:
  std::function<void()> on_signal_;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace mpbp

#endif  // MPBP_BROWSER_SIGNAL_WATCH_H_
