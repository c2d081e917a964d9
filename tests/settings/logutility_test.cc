#include "logutility.h"

#include <gtest/gtest.h>

#include <ctime>

#include "base/logging.h"
#include "tests/support/captured_log.h"

namespace mpbp {
namespace {

using test::CapturedLog;

TEST(RedactMessageTest, SecretsAndRemotingPayloadsGo) {
  const struct {
    std::string_view text;
    std::string_view redacted;
  } kCases[] = {
      {R"({"kp":"abc","x":1})", R"({"kp":"REDACTED","x":1})"},
      {R"([{"kp":"a"},{"kp":""},{"kp":"c"}])",
       R"([{"kp":"REDACTED"},{"kp":"REDACTED"},{"kp":"REDACTED"}])"},
      {R"({"kp": "abc"})", R"({"kp": REDACTED"abc"})"},
      {R"({"kp":"abc"kp":"def"})", R"({"kp":"REDACTED"kp":"REDACTED"})"},
      {R"({"kp":"cut)", R"({"kp":"REDACTED)"},
      {R"({"kp":")", R"({"kp":"REDACTED)"},
      {R"({"kp":)", R"({"kp":)"},
      {R"(["remoting-send",{"a":1}])", R"(["remoting-send", ...REDACTED...])"},
      {R"(["remoting-start"])", R"(["remoting-start", ...REDACTED...])"},
      {R"(["remoting-data","remoting-send"])", R"(["remoting-data", ...REDACTED...])"},
      {R"(["remoting-input)", R"(["remoting-input)"},
      {R"(["remoting-sender",1])", R"(["remoting-sender",1])"},
      {R"(["x","remoting-send",1])", R"(["x","remoting-send",1])"},
      {"no quote", "no quote"},
      {"", ""},
  };
  for (const auto& test_case : kCases) {
    EXPECT_EQ(test_case.redacted, RedactMessage(test_case.text)) << test_case.text;
  }
  EXPECT_EQ(std::string("\0\"kp\":\"REDACTED\"", 16),
            RedactMessage(std::string_view("\0\"kp\":\"\0\"", 9)));
}

TEST(RedactMessageTest, TheTimeGrowsWithTheLengthOnly) {
  std::string text;
  for (int i = 0; i < 500000; ++i) text += "\"kp\":\"x\"";
  EXPECT_EQ(500000u * 15, RedactMessage(text).size());
}

TEST(ReplaceTimestampTest, StampsWithTheLogsStart) {
  const time_t start = LogMessage::WallClockStartTime();
  tm local{};
  ASSERT_TRUE(localtime_r(&start, &local));
  char stamp[32];
  snprintf(stamp, sizeof(stamp), "%04d%02d%02d-%02d%02d%02d", local.tm_year + 1900,
           local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  EXPECT_EQ(std::string("/tmp/") + stamp + "/" + stamp + "%TIME%.log",
            ReplaceTimestamp("/tmp/%TIMESTAMP%/%TIMESTAMP%%TIME%.log"));
}

// Reads in small portions, to cross the parts.
std::string ReadBody(MultipartStream* form) {
  std::string body;
  char block[7];
  size_t read = 0;
  while (form->Read(block, sizeof(block), &read, nullptr) == StreamResult::SR_SUCCESS) {
    body.append(block, read);
  }
  return body;
}

TEST(MultipartTest, TheBodyHasThePartsInOrderWithTheirBytesUnchanged) {
  MultipartStream form("B");
  EXPECT_EQ("multipart/form-data; boundary=B", form.GetContentType());
  const std::string odd("a\r\n\"--B\0\xff", 10);
  EXPECT_TRUE(AddParameterToMultipart("key", odd, &form));
  EXPECT_TRUE(AddParameterToMultipart("empty", "", &form));
  EXPECT_TRUE(AddLogToMultipart("x.log", "text/plain", "log\n", &form));
  form.EndParts();
  form.EndParts();
  const std::string expected =
      "--B\r\nContent-Disposition: form-data; name=\"key\"\r\n\r\n" + odd +
      "\r\n--B\r\nContent-Disposition: form-data; name=\"empty\"\r\n\r\n"
      "\r\n--B\r\nContent-Disposition: form-data; name=\"x.log\"; filename=\"x.log\"\r\n"
      "Content-Type: text/plain\r\n\r\nlog\n"
      "\r\n--B--\r\n";
  EXPECT_EQ(expected.size(), form.GetSize());
  EXPECT_EQ(expected, ReadBody(&form));
}

TEST(MultipartTest, NothingCanBeAddedAfterTheEnd) {
  CapturedLog log;
  MultipartStream form("B");
  form.EndParts();
  EXPECT_FALSE(AddParameterToMultipart("key", "value", &form));
  EXPECT_FALSE(AddLogToMultipart("x.log", "text/plain", "log", &form));
  EXPECT_TRUE(log.Contains("Failed to add parameter:key=value\n"));
  EXPECT_TRUE(log.Contains("Failed to add log to multipart\n"));
  EXPECT_EQ("--B--\r\n", ReadBody(&form));
}

}  // namespace
}  // namespace mpbp
