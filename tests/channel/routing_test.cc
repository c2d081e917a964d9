#include "deployment.h"
#include "jsontext.h"
#include "tests/channel/channel_fixture.h"
#include "tests/support/child_process.h"

namespace mpbp::test {
namespace {

using testing::ElementsAre;

class Routing : public ChannelTest {
 protected:
  // What the engine gets after `text` was sent to the plug-in.
  std::string Answer(const std::string& text) {
    const size_t before = engine_->received.size();
    engine_->Send(text);
    return PumpUntil([&] { return engine_->received.size() > before; }) ? engine_->received.back()
                                                                        : "(nothing)";
  }
};

TEST_F(Routing, AKillTellsThePageInOrderAndSignalsTheEngines) {
  NamedChild engine_process("MurmelParlPlugin");
  ConnectToEngine();
  page_.texts.clear();
  EXPECT_TRUE(channel_->Send("[\"kill\",false]"));
  EXPECT_THAT(page_.texts, ElementsAre(kDeadText, kKilledText));
  EXPECT_FALSE(channel_->IsRunning());
  EXPECT_EQ(engine_process.WaitForSignal(), SIGTERM);
  EXPECT_TRUE(channel_->Send("[\"kill\",true]"));
  EXPECT_THAT(page_.texts, ElementsAre(kDeadText, kKilledText, kKilledText));
  EXPECT_FALSE(channel_->Send("[\"echo\"]"));
}

TEST_F(Routing, WhatIsNoRequestOfThePageGoesToTheEngineUnchangedAndIsLoggedRedacted) {
  CapturedLog log;
  ConnectToEngine();
  const std::string odd = std::string("not JSON \0", 10) + "\xff \xc3\xa4 {\"kp\":\"secret\"}";
  const std::vector<std::string> texts = {
      "[\"kill\",\"yes\"]", "[\"kill\"]",           "[\"uploadbrowserpluginlog\",1,{}]",
      "{\"0\":\"kill\"}",   std::string(5000, '['), odd};
  for (const std::string& text : texts) EXPECT_TRUE(channel_->Send(text));
  ASSERT_TRUE(PumpUntil([&] { return engine_->received.size() == texts.size(); }));
  EXPECT_EQ(engine_->received, texts);
  EXPECT_EQ(log.Count("Ignoring malformed 'kill' request (required boolean 'force' paramter)"), 2);
  EXPECT_TRUE(log.Contains("Malformed upload browser plugin log request: "));
  EXPECT_TRUE(log.Contains("{\"kp\":\"REDACTED\"}") && !log.Contains("secret"));
  engine_->Send(odd);
  EXPECT_TRUE(RunUntilText(odd));
  EXPECT_TRUE(log.Contains("F->C: not JSON"));
}

TEST_F(Routing, AnswersForALinkThatIsGoneAreDropped) {
  ConnectToEngine();
  const std::string request = R"(["httprequest",1,{"verb":"GET","proto":"http","host":"h",)"
                              R"("port":1,"path":"/"},"",""])";
  // A "qw" text that holds the word counts as a request.
  engine_->Send(R"(["qw-like "httprequest" without JSON])");
  for (int i = 0; i < 3; ++i) engine_->Send(request);
  ASSERT_TRUE(PumpUntil([&] { return page_.responses.size() == 3; }));
  CapturedLog log;
  engine_->DropLink();
  ASSERT_TRUE(RunUntilText(kDeadText));
  channel_->SendHttpResponse(std::move(page_.responses[0]));
  ASSERT_TRUE(RunUntilText(kReadyText, 2));
  channel_->SendHttpResponse(std::move(page_.responses[1]));
  channel_->Stop();
  channel_->SendHttpResponse(std::move(page_.responses[2]));
  EXPECT_EQ(log.Count("the link that asked is gone"), 3);
  RunFor(20);
  EXPECT_TRUE(engine_->received.empty());
}

TEST_F(Routing, ProxyLookUpsAreAnsweredByTheDelegate) {
  CapturedLog log;
  ConnectToEngine();
  page_.proxy_reply = R"(["proxyforurl",1,"DIRECT"])";
  EXPECT_EQ(Answer(R"(["getproxyforurl",1,"http://a/"])"), page_.proxy_reply);
  page_.proxy_reply.clear();
  engine_->Send(R"(["getproxyforurl"])");
  EXPECT_TRUE(PumpUntil(
      [&] { return log.Contains(R"(Failed getting proxy settings: ["getproxyforurl"])"); }));
}

TEST_F(Routing, SlowHandlingByThePageIsReportedToTheEngine) {
  ConnectToEngine();
  page_.on_text = [](const std::string& text) {
    if (text != "[\"slow\"]") return;
    const uint32_t end = TimeAfter(1001);
    while (TimeIsLater(Time(), end)) continue;
  };
  EXPECT_THAT(Answer("[\"slow\"]"),
              testing::MatchesRegex(
                  R"re(\["comment","JS layer took [0-9]{4,}ms to handle message\."\])re"));
}

TEST_F(Routing, TheLogIsUploadedAsAForm) {
  CapturedLog log;
  ConnectToEngine();
  const std::string request = R"(["uploadbrowserpluginlog",0,{"jid":"me@example"}])";
  EXPECT_TRUE(channel_->Send(request));
  EXPECT_TRUE(log.Contains("as the log data has already been cleared."));
  EXPECT_TRUE(page_.requests.empty());

  channel_->log_store = std::make_shared<MemoryLog>();
  std::string log_text;
  log_text.assign(9'900'000, 'y');
  ASSERT_EQ(channel_->log_store->WriteAll("x" + log_text), StreamResult::SR_SUCCESS);
  EXPECT_TRUE(channel_->Send(request));
  EXPECT_TRUE(log.Contains("Log size exceeds maximum upload size.Log size is 9900001"));
  ASSERT_EQ(page_.requests.size(), 1u);
  const HttpRequest& upload = page_.requests[0];
  EXPECT_EQ(upload.verb + upload.proto + upload.host + upload.path,
            std::string("POSTHTTPS") + kCrashReportHost + "/cr/report");
  EXPECT_EQ(upload.port, 443);
  const std::string boundary = "----**--u8jzPde0IgxLd6GncfBAepfJBd0Kh8--**----";
  EXPECT_EQ(upload.headers, "Content-Type: multipart/form-data; boundary=" + boundary + "\r\n\r\n");
  const auto part = [&](const std::string& head, const std::string& content) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + head + "\r\n\r\n" +
           content + "\r\n";
  };
  const std::string form =
      part("prod\"", "Murmel_Parl_Plugin_Linux") + part("ver\"", "5.1.7.0-browserpluginlogs") +
      part("email\"", "me@example") + part("type\"", "log") +
      part("browserpluginlog.log\"; filename=\"browserpluginlog.log\"\r\nContent-Type: text/plain",
           log_text) +
      "--" + boundary + "--\r\n";
  EXPECT_TRUE(upload.body == form) << upload.body.substr(0, 1000);
  page_.responses[0]->error = HTTP_FAILED;
  channel_->SendHttpResponse(std::move(page_.responses[0]));
  ASSERT_TRUE(PumpUntil([&] { return engine_->received.size() == 1; }));
  EXPECT_EQ(engine_->received[0], R"(["httpresponse",100,{"error":2,"lastmodified":0}])");
}

}  // namespace
}  // namespace mpbp::test
