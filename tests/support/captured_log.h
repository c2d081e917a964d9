// The log's lines as a test sees them.
#ifndef MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_
#define MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_

#include <memory>
#include <string>
#include <string_view>

#include "base/logging.h"
#include "base/memorylog.h"

namespace mpbp::test {

// Receives the log from construction on, but for the complaint that logging itself was slow: a
// loaded machine brings it into any test. At the end every stream is detached from logging.
class CapturedLog {
 public:
  explicit CapturedLog(int severity = LS_SENSITIVE) { LogMessage::AddLogToStream(log_, severity); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog() { LogMessage::LogToStream(nullptr, LS_NONE); }

  std::string text() const {
    std::string all = log_->Tail(log_->size() - cleared_);
    for (size_t at = 0; (at = all.find("Slow log: took ", at)) != std::string::npos;) {
      at = all.rfind('\n', at) + 1;
      all.erase(at, all.find('\n', at) + 1 - at);
    }
    return all;
  }
  bool Contains(std::string_view part) const { return Count(part) > 0; }
  // How often `part` was logged.
  int Count(std::string_view part) const {
    const std::string all = text();
    int count = 0;
    for (size_t at = 0; (at = all.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
  }
  void Clear() { cleared_ = log_->size(); }

 private:
  std::shared_ptr<MemoryLog> log_ = std::make_shared<MemoryLog>();
  uint64_t cleared_ = 0;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_
