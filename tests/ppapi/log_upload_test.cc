#include <cstdio>

#include "tests/ppapi/service_fixture.h"

namespace mpbp::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kCrashHost[] = "crash.murmel.example";
constexpr char kUpload[] = R"(["uploadbrowserpluginlog",0,{"jid":"me@example"}])";

class LogUploadTest : public ServiceTest {};

TEST_F(LogUploadTest, TheLogArrivesAsAFormAndTheEngineHearsOfIt) {
  // Ends when its input is closed, which is when this process ends at the latest.
  const std::string command = std::string("exec '") + PYTHON_PROGRAM + "' -B '" + UPLOAD_SERVER +
                              "' '" + app_data_.dir().path() + "' " + kCrashHost;
  const std::unique_ptr<FILE, int (*)(FILE*)> server(popen(command.c_str(), "we"), pclose);
  // The file of that name that the server has written.
  const auto from_server = [&](const std::string& name) {
    std::string text;
    EXPECT_TRUE(RunUntil([&] { return !(text = ReadFile(app_data_.dir() / name)).empty(); }))
        << "no upload server; it needs python3 and openssl";
    return text;
  };
  Start({.ca_file = app_data_.dir() / "cert.pem"});
  host_.options().connect_to = {std::string(kCrashHost) + ":443:127.0.0.1:" + from_server("port")};

  ASSERT_EQ(page_->Send("[\"before\",\"\xC3\xA4\"]").exception, std::nullopt);
  ASSERT_TRUE(RunUntil([this] { return engine_->received.size() == 1; }));
  ASSERT_EQ(page_->Send(kUpload).exception, std::nullopt);
  const Json::Value post = Parsed(from_server("upload"));
  const std::string boundary = "----**--u8jzPde0IgxLd6GncfBAepfJBd0Kh8--**----";
  EXPECT_EQ(post["path"], "/cr/report");
  EXPECT_EQ(post["content_type"], "multipart/form-data; boundary=" + boundary);
  EXPECT_THAT(post["body"].asString(),
              StartsWith("--" + boundary + "\r\nContent-Disposition: form-data"));
  EXPECT_THAT(post["body"].asString(), EndsWith("\r\n--" + boundary + "--\r\n"));

  Json::Value parts = post["parts"];
  ASSERT_EQ(parts.size(), 5u);
  // The log up to the upload, from its first line on.
  const std::string log = parts[4][2].asString();
  parts[4][2] = "the log";
  EXPECT_EQ(log.substr(0, 200), Log().substr(0, 200));
  EXPECT_THAT(log, HasSubstr("C->F: [\"before\",\"\xC3\x83\xC2\xA4\"]\n"));  // byte by byte
  EXPECT_THAT(
      log, HasSubstr("UploadBrowserPluginLog message with qw info:" + std::string(kUpload) + "\n"));
  EXPECT_LT(log.find("UploadBrowserPluginLog"), log.find("Quern processes.\n"));
  EXPECT_EQ(WriteJson(parts), R"([["form-data; name=\"prod\"",null,"Murmel_Parl_Plugin_Linux"],)"
                              R"(["form-data; name=\"ver\"",null,"5.1.7.0-browserpluginlogs"],)"
                              R"(["form-data; name=\"email\"",null,"me@example"],)"
                              R"(["form-data; name=\"type\"",null,"log"],)"
                              R"(["form-data; name=\"browserpluginlog.log\"; )"
                              R"(filename=\"browserpluginlog.log\"","text/plain","the log"]])");

  ASSERT_TRUE(RunUntil([this] { return engine_->received.size() == 2; }));
  const Json::Value answer = Parsed(engine_->received[1]);
  EXPECT_EQ(answer[1], 100);
  EXPECT_EQ(answer[2]["error"], 0);
  EXPECT_EQ(answer[4], "taken");
  EXPECT_THAT(texts_, IsEmpty());
}

}  // namespace
}  // namespace mpbp::test
