// Logging for the whole program. A statement
//
//   LOG(LS_INFO) << "Wrote port file, port=" << port;
//
// builds one line and, when it ends, hands it to standard error and to every registered stream
// whose threshold it reaches. A statement that no output wants costs one comparison; its operands
// are not evaluated. Any thread may log. Until it is configured, logging writes nothing anywhere.
//
// A line: "[012:345] " (seconds and milliseconds since the log started) when time stamps are on,
// "Warning(file.cc:330): " from LS_WARNING up, the text, " : [0x0000000b] " and the system's text
// of the error when there is one, and a line feed.
#ifndef MPBP_BASE_LOGGING_H_
#define MPBP_BASE_LOGGING_H_

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "base/logline.h"
#include "base/stream.h"

namespace mpbp {

enum LoggingSeverity : int {
  LS_SENSITIVE = 0,
  LS_VERBOSE = 1,
  LS_INFO = 2,
  LS_WARNING = 3,
  LS_ERROR = 4,
  LS_NONE = 5,  // as a threshold: nothing
};

enum LogErrorContext : int {
  ERRCTX_NONE = 0,
  ERRCTX_ERRNO = 1,  // the code and its strerror text; any other non-zero context: the code only
};

class LogMessage {
 public:
  LogMessage(const char* file, int line, int severity, int error_context = ERRCTX_NONE,
             int error = 0);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  // Finishes the line and delivers it.
  ~LogMessage();

  LogLine& stream() { return line_; }

  // Whether any output wants lines of this severity.
  static bool Loggable(int severity) {
    return severity >= min_sev_.load(std::memory_order_relaxed);
  }

  // Threshold for standard error. Where that is closed or the null device nothing is written to it:
  // lines that nobody can see cost nothing.
  static void LogToDebug(int severity);
  // Adds an output; logging shares the stream until LogToStream drops it. Logging serialises its
  // own writes with one lock; a stream that others use too needs a lock of its own. The stream may
  // log from its Write.
  static void AddLogToStream(std::shared_ptr<StreamInterface> stream, int severity);
  // Drops every registered stream, then adds this one unless it is null.
  static void LogToStream(std::shared_ptr<StreamInterface> stream, int severity);
  static void LogTimestamps(bool on);
  static void LogThreads(bool on);  // stored; no output uses it

  // "LS_SENSITIVE" to "LS_ERROR" give 0 to 4, a text that begins with a digit its decimal value,
  // anything else 5 (nothing is logged).
  static int SeverityFromName(std::string_view name);

  // Wall-clock time of the log's start: that of the first call.
  static time_t WallClockStartTime();

 private:
  void Deliver(const std::string& text) const;

  static std::atomic<int> min_sev_;

  LogLine line_;
  int severity_;
  std::string extra_;  // error text, empty without an error context
};

// Makes `condition ? (void)0 : voidify & stream` an expression of type void.
struct LogMessageVoidify {
  void operator&(LogLine&) const {}
};

}  // namespace mpbp

// An expression that is a statement of its own: parentheses would keep `<<` out.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define MPBP_LOG_IF_WANTED(severity, ...) \
  !::mpbp::LogMessage::Loggable(severity) \
      ? (void)0                           \
      : ::mpbp::LogMessageVoidify() &     \
            ::mpbp::LogMessage(__FILE__, __LINE__, severity __VA_OPT__(, ) __VA_ARGS__).stream()
// NOLINTEND(bugprone-macro-parentheses)

#define LOG(severity) MPBP_LOG_IF_WANTED(::mpbp::severity)
// The same with the system error number `error` appended to the line.
#define LOG_ERR_EX(severity, error) \
  MPBP_LOG_IF_WANTED(::mpbp::severity, ::mpbp::ERRCTX_ERRNO, error)
// The same with errno appended, as it is when the statement begins.
#define LOG_ERR(severity) LOG_ERR_EX(severity, errno)

#endif  // MPBP_BASE_LOGGING_H_
