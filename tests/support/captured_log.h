// The log's lines as a test sees them.
#ifndef MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_
#define MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/logging.h"
#include "base/stream.h"

namespace mpbp::test {

// Receives the log from construction on, but for the complaint that logging itself was slow: a
// loaded machine brings it into any test. At the end every stream is detached from logging.
class CapturedLog {
 public:
  explicit CapturedLog(int severity = LS_SENSITIVE) {
    LogMessage::AddLogToStream(stream_, severity);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog() { LogMessage::LogToStream(nullptr, LS_NONE); }

  std::string text() const {
    std::lock_guard<std::mutex> guard(stream_->lock);
    return stream_->text;
  }
  bool Contains(std::string_view part) const { return text().find(part) != std::string::npos; }
  // How often `part` was logged.
  int Count(std::string_view part) const {
    const std::string all = text();
    int count = 0;
    for (size_t at = 0; (at = all.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
  }
  void Clear() {
    std::lock_guard<std::mutex> guard(stream_->lock);
    stream_->text.clear();
  }

 private:
  struct Stream : StreamInterface {
    StreamResult Read(void*, size_t, size_t*, int*) override { return StreamResult::SR_ERROR; }
    StreamResult Write(const void* data, size_t length, size_t* written, int* /*error*/) override {
      std::lock_guard<std::mutex> guard(lock);
      const std::string_view line(static_cast<const char*>(data), length);
      if (line.find("Slow log: took ") == std::string_view::npos) text.append(line);
      if (written) *written = length;
      return StreamResult::SR_SUCCESS;
    }
    void Close() override {}

    std::mutex lock;
    std::string text;
  };

  std::shared_ptr<Stream> stream_ = std::make_shared<Stream>();
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_CAPTURED_LOG_H_
