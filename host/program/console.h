#ifndef MPBP_HOST_PROGRAM_CONSOLE_H_
#define MPBP_HOST_PROGRAM_CONSOLE_H_

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "host/host.h"

namespace mpbp::host {

// The page that people type at: reads lines from a descriptor, prints to standard output.
class Console {
 public:
  // `host` has a module loaded and outlives the console. `input` stays the caller's.
  Console(Host& host, std::string url, int input, double linger_seconds);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // Opens the page and sets its onmessage. False, with a line printed, when the module refused it.
  bool Open();
  // Serves the page until the input is over or `stop_fd` is readable.
  void Run(int stop_fd);

 private:
  using Clock = std::chrono::steady_clock;

  void OnInput();
  void TakeLines();
  void HandleLine(const std::string& line);
  void HandleCommand(const std::string& command, const std::string& argument);
  void ListProperties();
  // The page prints each text, and takes as long over it as it was told.
  void SetOnMessage();
  void SetSlowness(const std::string& ms);
  void FireEvent(const std::string& code);
  void Wait(const std::string& seconds);
  // Prints what was thrown. True when nothing was.
  bool Check(const Result& result);

  Host& host_;
  const std::string url_;
  const int input_;
  const Clock::duration linger_;
  int watch_ = 0;
  bool done_ = false;
  bool input_over_ = false;
  bool end_announced_ = false;
  Clock::time_point wait_until_;
  Clock::duration slowness_{};
  std::string partial_;
  std::deque<std::string> lines_;
  std::shared_ptr<Page> page_;
};

// Prints "HH:MM:SS.mmm text", the text raw.
void PrintLine(std::string_view text);

}  // namespace mpbp::host

#endif  // MPBP_HOST_PROGRAM_CONSOLE_H_
