#include "base/logging.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/criticalsection.h"
#include "base/staticobject.h"
#include "base/timeutils.h"

namespace mpbp {
namespace {

constexpr uint32_t kSlowMs = 50;

constexpr const char* kSeverityNames[] = {"Sensitive", "Verbose", "Info", "Warning", "Error"};

struct Output {
  std::shared_ptr<StreamInterface> stream;
  int threshold;
};

// The outputs and their lock. Statements that come after its end, when the module is unloaded, are
// stopped at the gate.
class LogState {
 public:
  explicit LogState(std::atomic<int>& gate) : gate_(gate) {}
  ~LogState() { gate_ = LS_NONE; }

  void UpdateGate() MPBP_REQUIRES(lock) {
    int lowest = dbg_sev;
    for (const Output& output : outputs) lowest = std::min(lowest, output.threshold);
    gate_ = lowest;
  }

  CriticalSection lock;
  std::vector<Output> outputs MPBP_GUARDED_BY(lock);  // and every write to them
  std::atomic<int> dbg_sev{LS_NONE};
  std::atomic<int> ctx_sev{LS_WARNING};
  std::atomic<bool> timestamps{false};
  std::atomic<bool> threads{false};

 private:
  std::atomic<int>& gate_;
};

LogState& State(std::atomic<int>& gate) {
  static StaticObject<LogState> state(gate);
  return *state;
}

uint32_t LogStartTime() {
  static const uint32_t start = Time();
  return start;
}

const char* SeverityName(int severity) {
  return severity >= LS_SENSITIVE && severity <= LS_ERROR ? kSeverityNames[severity] : "<unknown>";
}

std::string_view FileName(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string ErrorText(int context, int error) {
  if (context == ERRCTX_NONE) return {};
  char code[16];
  snprintf(code, sizeof(code), "[0x%08x]", static_cast<unsigned>(error));
  std::string text = code;
  if (context == ERRCTX_ERRNO) {
    char buffer[256];
    text += " ";
    text += strerror_r(error, buffer, sizeof(buffer));
  }
  return text;
}

bool CanBeSeen(FILE* stream) {
  struct stat status {};
  if (fstat(fileno(stream), &status) != 0) return false;
  return !S_ISCHR(status.st_mode) || status.st_rdev != makedev(1, 3);  // /dev/null
}

// A slow output makes the warning about its slowness slow too; that one is not reported again.
thread_local bool reporting_slowness = false;

}  // namespace

std::atomic<int> LogMessage::min_sev_{LS_NONE};

LogMessage::LogMessage(const char* file, int line, int severity, int error_context, int error)
    : severity_(severity), extra_(ErrorText(error_context, error)) {
  LogState& state = State(min_sev_);
  if (state.timestamps) {
    const uint32_t elapsed = Time() - LogStartTime();
    line_ << '[';
    line_.WritePadded(elapsed / 1000, 3) << ':';
    line_.WritePadded(elapsed % 1000, 3) << "] ";
  }
  if (severity >= state.ctx_sev) {
    line_ << SeverityName(severity) << '(' << FileName(file) << ':' << line << "): ";
  }
}

LogMessage::~LogMessage() {
  try {
    if (!extra_.empty()) line_ << " : " << extra_;
    line_ << '\n';
    Deliver(line_.text());
  } catch (...) {
    // Out of memory: the line is lost, the program goes on.
  }
}

void LogMessage::Deliver(const std::string& text) const {
  LogState& state = State(min_sev_);
  if (severity_ >= state.dbg_sev) {
    // Not fputs: the line may hold NUL bytes. Nobody is left to tell when standard error fails.
    fwrite(text.data(), 1, text.size(), stderr);
    fflush(stderr);
  }
  uint32_t took = 0;
  {
    CritScope scope(state.lock);
    const uint32_t start = Time();
    // By index and by copy: a stream's own logging or a call of LogToStream from inside Write may
    // change the list.
    for (size_t i = 0; i < state.outputs.size(); ++i) {
      const Output output = state.outputs[i];
      if (output.threshold > severity_) continue;
      // A log that cannot be written has nowhere to say so.
      static_cast<void>(output.stream->WriteAll(text));
    }
    took = Time() - start;
  }
  if (took >= kSlowMs && !reporting_slowness) {
    reporting_slowness = true;
    LOG(LS_WARNING) << "Slow log: took " << took << "ms to write " << text.size() << " bytes.";
    reporting_slowness = false;
  }
}

void LogMessage::LogToDebug(int severity) {
  LogState& state = State(min_sev_);
  CritScope scope(state.lock);
  state.dbg_sev = CanBeSeen(stderr) ? severity : int{LS_NONE};
  state.UpdateGate();
}

void LogMessage::AddLogToStream(std::shared_ptr<StreamInterface> stream, int severity) {
  LogStartTime();
  LogState& state = State(min_sev_);
  CritScope scope(state.lock);
  state.outputs.push_back({std::move(stream), severity});
  state.UpdateGate();
}

void LogMessage::LogToStream(std::shared_ptr<StreamInterface> stream, int severity) {
  LogState& state = State(min_sev_);
  std::vector<Output> released;  // outlives the lock: a stream may log while it closes
  CritScope scope(state.lock);
  released.swap(state.outputs);
  if (stream) state.outputs.push_back({std::move(stream), severity});
  state.UpdateGate();
}

void LogMessage::LogTimestamps(bool on) {
  LogStartTime();
  State(min_sev_).timestamps = on;
}

void LogMessage::LogThreads(bool on) { State(min_sev_).threads = on; }

int LogMessage::SeverityFromName(std::string_view name) {
  constexpr std::string_view kNames[] = {"LS_SENSITIVE", "LS_VERBOSE", "LS_INFO", "LS_WARNING",
                                         "LS_ERROR"};
  for (int severity = LS_SENSITIVE; severity <= LS_ERROR; ++severity) {
    if (name == kNames[severity]) return severity;
  }
  if (name.empty() || name.front() < '0' || name.front() > '9') return LS_NONE;
  const long value = strtol(std::string(name).c_str(), nullptr, 10);
  return static_cast<int>(std::min<long>(value, INT_MAX));
}

time_t LogMessage::WallClockStartTime() {
  static const time_t start = time(nullptr);
  return start;
}

}  // namespace mpbp
