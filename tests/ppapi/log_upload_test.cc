#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "tests/ppapi/service_fixture.h"

namespace mpbp::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kCrashHost[] = "crash.murmel.example";
constexpr char kUpload[] = R"(["uploadbrowserpluginlog",0,{"jid":"me@example"}])";
constexpr size_t kMaxLog = 9'900'000;

// The server that takes uploads, as a process of its own; killed and reaped at the end.
class UploadServer {
 public:
  explicit UploadServer(const std::string& folder) {
    int out[2] = {-1, -1};
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(out[1], STDOUT_FILENO);
      execl(PYTHON_PROGRAM, PYTHON_PROGRAM, UPLOAD_SERVER, folder.c_str(), kCrashHost, nullptr);
      _exit(127);
    }
    EXPECT_GT(pid_, 0);
    close(out[1]);
    output_ = out[0];
    EXPECT_EQ(fcntl(output_, F_SETFL, O_NONBLOCK), 0);
  }
  UploadServer(const UploadServer&) = delete;
  UploadServer& operator=(const UploadServer&) = delete;
  ~UploadServer() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(output_);
  }

  // The next line that it printed; nothing when there is none yet.
  std::optional<std::string> TakeLine() {
    char buffer[65536];
    for (ssize_t got = 1; got > 0;) {
      got = read(output_, buffer, sizeof buffer);
      if (got > 0) text_.append(buffer, static_cast<size_t>(got));
    }
    const size_t end = text_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string line = text_.substr(0, end);
    text_.erase(0, end + 1);
    return line;
  }

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  std::string text_;
};

class LogUploadTest : public ServiceTest {
 protected:
  // With a server that takes uploads in the crash-report host's place.
  void StartWithServer() {
    server_ = std::make_unique<UploadServer>(app_data_.dir().path());
    Start({.ca_file = app_data_.dir() / "cert.pem"});
    const std::string port = ServerLine();
    ASSERT_FALSE(port.empty()) << "no upload server; it needs python3 and openssl";
    host_.options().connect_to = {std::string(kCrashHost) + ":443:127.0.0.1:" + port};
  }
  std::string ServerLine() {
    std::optional<std::string> line;
    RunUntil([&] { return (line = server_->TakeLine()).has_value(); });
    return line.value_or("");
  }
  // The first text that the engine receives.
  std::string EngineText() {
    EXPECT_TRUE(RunUntil([this] { return !engine_->received.empty(); }));
    return engine_->received.empty() ? "" : engine_->received[0];
  }

  std::unique_ptr<UploadServer> server_;
};

TEST_F(LogUploadTest, TheLogArrivesAsAFormAndTheEngineHearsOfIt) {
  StartWithServer();
  ASSERT_EQ(page_->Send("[\"before\",\"\xC3\xA4\"]").exception, std::nullopt);
  EngineText();
  engine_->received.clear();
  ASSERT_EQ(page_->Send(kUpload).exception, std::nullopt);
  const Json::Value post = Parsed(ServerLine());
  const std::string boundary = "----**--u8jzPde0IgxLd6GncfBAepfJBd0Kh8--**----";
  EXPECT_EQ(post["path"], "/cr/report");
  EXPECT_EQ(post["content_type"], "multipart/form-data; boundary=" + boundary);
  EXPECT_THAT(post["begin"].asString(),
              StartsWith("--" + boundary + "\r\nContent-Disposition: form-data"));
  EXPECT_THAT(post["end"].asString(), EndsWith("\r\n--" + boundary + "--\r\n"));
  EXPECT_EQ(post["defects"].size(), 0u);

  const std::pair<const char*, const char*> fields[] = {
      {"prod", "Murmel_Parl_Plugin_Linux"},
      {"ver", "5.1.7.0-browserpluginlogs"},
      {"email", "me@example"},
      {"type", "log"},
  };
  const Json::Value& parts = post["parts"];
  ASSERT_EQ(parts.size(), 5u);
  for (Json::ArrayIndex i = 0; i < 4; ++i) {
    EXPECT_EQ(parts[i]["disposition"], "form-data");
    EXPECT_EQ(parts[i]["name"], fields[i].first);
    EXPECT_EQ(parts[i]["content"], fields[i].second);
    EXPECT_TRUE(parts[i]["filename"].isNull() && parts[i]["type"].isNull());
  }
  const Json::Value& file = parts[4];
  EXPECT_EQ(file["disposition"], "form-data");
  EXPECT_EQ(file["name"], "browserpluginlog.log");
  EXPECT_EQ(file["filename"], "browserpluginlog.log");
  EXPECT_EQ(file["type"], "text/plain");
  // The log up to the upload, from its first line on.
  const std::string log = file["content"].asString();
  EXPECT_THAT(log, HasSubstr("Computer model: "));
  EXPECT_THAT(log, HasSubstr("C->F: [\"before\",\"\xC3\x83\xC2\xA4\"]\n"));  // byte by byte
  EXPECT_THAT(
      log, HasSubstr("UploadBrowserPluginLog message with qw info:" + std::string(kUpload) + "\n"));
  EXPECT_THAT(log, HasSubstr("Quern processes.\n"));
  EXPECT_LT(log.find("UploadBrowserPluginLog"), log.find("Quern processes.\n"));
  EXPECT_EQ(log.substr(0, 200), Log().substr(0, 200));

  const Json::Value answer = Parsed(EngineText());
  EXPECT_EQ(answer[1], 100);
  EXPECT_EQ(answer[2]["error"], 0);
  EXPECT_EQ(answer[4], "taken");
  EXPECT_THAT(texts_, IsEmpty());
}

TEST_F(LogUploadTest, ALongLogIsCutFromTheFront) {
  StartWithServer();
  constexpr int kTexts = 10;
  const std::string filler(1'000'000, 'f');
  for (int i = 0; i < kTexts; ++i) engine_->Send("[\"" + filler + "\"]");
  ASSERT_TRUE(RunUntil([this] { return texts_.size() >= kTexts; }));
  ASSERT_EQ(page_->Send(kUpload).exception, std::nullopt);
  const std::string log = Parsed(ServerLine())["parts"][4]["content"].asString();
  EXPECT_EQ(log.size(), kMaxLog);
  const std::string whole = Log();
  const size_t cut = whole.find("Log size exceeds maximum upload size.Log size is ");
  ASSERT_NE(cut, std::string::npos);
  const size_t end = whole.find('\n', cut) + 1;
  EXPECT_TRUE(log == whole.substr(end - kMaxLog, kMaxLog));
}

TEST_F(LogUploadTest, AnUploadThatFailsIsReportedToTheEngineToo) {
  Start({.connect_to = {std::string(kCrashHost) + ":443:127.0.0.1:1"}});
  ASSERT_EQ(page_->Send(kUpload).exception, std::nullopt);
  EXPECT_EQ(EngineText(), R"(["httpresponse",100,{"error":2,"lastmodified":0}])");
}

TEST_F(LogUploadTest, ARequestWithoutAnAddressIsRelayed) {
  Start();
  for (const char* text :
       {R"(["uploadbrowserpluginlog",0,{"jid":5}])", R"(["uploadbrowserpluginlog","jid"])"}) {
    engine_->received.clear();
    ASSERT_EQ(page_->Send(text).exception, std::nullopt);
    EXPECT_EQ(EngineText(), text);
    EXPECT_THAT(
        Log(),
        HasSubstr("Malformed upload browser plugin log request: " + std::string(text) + "\n"));
  }
}

}  // namespace
}  // namespace mpbp::test
