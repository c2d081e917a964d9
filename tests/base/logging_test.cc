#include "base/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace mpbp {
namespace {

// Collects what logging writes; fails or stalls on request.
class CaptureStream : public StreamInterface {
 public:
  StreamResult Read(void*, size_t, size_t* read, int*) override {
    *read = 0;
    return StreamResult::SR_EOS;
  }
  StreamResult Write(const void* data, size_t length, size_t* written, int*) override {
    if (stall_ms > 0) {
      timespec pause{0, stall_ms * 1'000'000L};
      nanosleep(&pause, nullptr);
    }
    *written = std::min<size_t>(length, 7);  // short writes: every line must arrive whole
    text.append(static_cast<const char*>(data), *written);
    return StreamResult::SR_SUCCESS;
  }
  void Close() override {}

  std::string text;
  int stall_ms = 0;
};

class LoggingTest : public testing::Test {
 protected:
  ~LoggingTest() override {
    LogMessage::LogToStream(nullptr, LS_NONE);
    LogMessage::LogToDebug(LS_NONE);
    LogMessage::LogTimestamps(false);
  }
  std::shared_ptr<CaptureStream> stream_ = std::make_shared<CaptureStream>();
};

TEST_F(LoggingTest, NothingIsEvaluatedOrWrittenUntilAnOutputWantsIt) {
  int evaluated = 0;
  LOG(LS_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  LogMessage::LogToStream(stream_, LS_WARNING);
  LOG(LS_INFO) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  LOG(LS_WARNING) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
  LogMessage::LogToStream(nullptr, LS_INFO);
  LOG(LS_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggingTest, ALineCarriesStampPlaceTextAndError) {
  LogMessage::LogToStream(stream_, LS_INFO);
  LOG(LS_INFO) << "plain";
  LogMessage("dir/other\\server.cc", 330, LS_WARNING).stream() << "odd";
  LogMessage("a\\b/c.cc", 1, LS_ERROR, ERRCTX_ERRNO, EAGAIN).stream() << "fork()";
  LogMessage("a.cc", 2, LS_INFO, 7, 255).stream() << "code only";
  EXPECT_EQ(stream_->text,
            "plain\nWarning(server.cc:330): odd\n"
            "Error(c.cc:1): fork() : [0x0000000b] Resource temporarily unavailable\n"
            "code only : [0x000000ff]\n");
  stream_->text.clear();
  LogMessage::LogTimestamps(true);
  LOG(LS_INFO) << "stamped";
  EXPECT_THAT(stream_->text, testing::MatchesRegex("\\[[0-9]{3,}:[0-9]{3}\\] stamped\n"));
}

TEST_F(LoggingTest, EveryStreamHasItsOwnThreshold) {
  auto errors = std::make_shared<CaptureStream>();
  LogMessage::LogToStream(stream_, LS_VERBOSE);
  LogMessage::AddLogToStream(errors, LS_ERROR);
  LOG(LS_VERBOSE) << "fine";
  LogMessage("a.cc", 1, LS_ERROR).stream() << "bad";
  EXPECT_EQ(stream_->text, "fine\nError(a.cc:1): bad\n");
  EXPECT_EQ(errors->text, "Error(a.cc:1): bad\n");
}

TEST_F(LoggingTest, ASlowStreamIsReportedOnceAndNotForEver) {
  stream_->stall_ms = 20;
  LogMessage::LogToStream(stream_, LS_INFO);
  LOG(LS_INFO) << "thirty bytes need five writes";
  EXPECT_THAT(stream_->text,
              testing::ContainsRegex("Slow log: took [0-9]+ms to write 30 bytes\\.\n$"));
}

TEST(SeverityFromName, KnowsNamesAndNumbersAndDisablesOnAnythingElse) {
  EXPECT_EQ(LogMessage::SeverityFromName("LS_SENSITIVE"), LS_SENSITIVE);
  EXPECT_EQ(LogMessage::SeverityFromName("LS_ERROR"), LS_ERROR);
  EXPECT_EQ(LogMessage::SeverityFromName("1x"), LS_VERBOSE);
  EXPECT_EQ(LogMessage::SeverityFromName("ls_info"), LS_NONE);
  EXPECT_EQ(LogMessage::SeverityFromName("-1"), LS_NONE);
  EXPECT_EQ(LogMessage::SeverityFromName(""), LS_NONE);
}

}  // namespace
}  // namespace mpbp
