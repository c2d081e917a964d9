// Whole sessions with the stand-in engine's own process.
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <set>

#include "base/filesystem.h"
#include "engineprocesses.h"
#include "jsontext.h"
#include "tests/ppapi/module_fixture.h"
#include "tests/support/http_server.h"

namespace mpbp::test {
namespace {

class Session : public ModuleTest {
 protected:
  void SetUp() override {
    // Engines detach themselves and become children of this process: it can wait for their end.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    app_data_.WriteOptions("install_dir=" MPBP_ENGINE_FOLDER "\n");
  }
  void TearDown() override {
    ModuleTest::TearDown();
    KillEngineProcesses(true, true);
    while (waitpid(-1, nullptr, 0) > 0) continue;
  }
  // Those that live: where nobody collects ended processes, those of earlier tests may be listed
  // too.
  static std::vector<int> Engines() {
    std::vector<int> all;
    FindEngineProcesses(true, &all);
    std::erase_if(all, [](int pid) {
      return ReadFile("/proc/" + std::to_string(pid) + "/status").find("State:\tZ") !=
             std::string::npos;
    });
    return all;
  }
  bool RunUntilStarting(const std::string& start, size_t count = 1) {
    return RunUntil([&] {
      return static_cast<size_t>(std::count_if(texts_.begin(), texts_.end(), [&](const auto& text) {
               return text.starts_with(start);
             })) >= count;
    });
  }
};

TEST_F(Session, StartsTheEngineTalksSurvivesItsDeathAndKillsIt) {
  CreatePage();
  ASSERT_EQ(Listen(), std::nullopt);
  EXPECT_THAT(texts_, testing::ElementsAre(R"(["f-connect",{"error":-1,"step":"0"}])",
                                           R"(["f-connect",{"step":"2"}])"));
  EXPECT_EQ(page_->Send("[\"echo\",\"early\"]").exception, std::nullopt);
  ASSERT_TRUE(RunUntilStarting("[\"qw\""));
  ASSERT_TRUE(RunUntilText("[\"echo\",\"early\"]"));

  ASSERT_EQ(Engines().size(), 1u);
  const int first = Engines()[0];
  ASSERT_EQ(kill(first, SIGKILL), 0);
  ASSERT_EQ(waitpid(first, nullptr, 0), first);
  ASSERT_TRUE(RunUntilText(kDead));
  ASSERT_TRUE(RunUntilStarting("[\"qw\"", 2));

  const int second = Engines()[0];
  EXPECT_EQ(page_->Send("[\"kill\",true]").exception, std::nullopt);
  EXPECT_EQ(texts_[texts_.size() - 2], kDead);
  EXPECT_EQ(texts_.back(), kKilled);
  EXPECT_EQ(waitpid(second, nullptr, 0), second);
  EXPECT_EQ(page_->Send("x").exception, "Send returned false");

  // The page may begin again.
  ASSERT_EQ(Listen(), std::nullopt);
  ASSERT_TRUE(RunUntilStarting("[\"qw\"", 3));
}

TEST_F(Session, TwoPagesShareOneEngineAndAReloadComesBackToIt) {
  CreatePage();
  ASSERT_EQ(Listen(), std::nullopt);
  ASSERT_TRUE(RunUntilStarting("[\"qw\""));
  const auto other = host_.CreatePage("https://meet.murmel.example/");
  std::vector<std::string> other_texts;
  other->SetOnMessage([&](const std::string& text) { other_texts.push_back(text); });
  EXPECT_EQ(other->Send("[\"echo\",2]").exception, std::nullopt);
  ASSERT_TRUE(
      RunUntil([&] { return !other_texts.empty() && other_texts.back() == "[\"echo\",2]"; }));
  EXPECT_EQ(CountTexts("[\"echo\",2]"), 0u);
  for (int i = 0; i < 3; ++i) {
    page_->Send("[\"large\",200000]");  // on its way while the page goes
    CreatePage();
    texts_.clear();
    ASSERT_EQ(Listen(), std::nullopt);
    ASSERT_TRUE(RunUntilStarting("[\"qw\""));
  }
  EXPECT_EQ(Engines().size(), 1u);
}

TEST_F(Session, APageCannotActThroughTheEcho) {
  HttpServer server([](const HttpServerRequest&) { return HttpServerResponse(); });
  CreatePage();
  ASSERT_EQ(Listen(), std::nullopt);
  ASSERT_TRUE(RunUntilStarting("[\"qw\""));
  texts_.clear();
  const std::string fetch = R"(1,{"host":"127.0.0.1","path":"/","port":)" +
                            std::to_string(server.port()) +
                            R"(,"proto":"http","verb":"GET"},"",""])";
  const std::string texts[] = {
      "[\"httprequest\"," + fetch,
      "[\"\\u0068ttprequest\"," + fetch,
      "[\"slow\",1,\"httprequest\"]",
      "[\"getproxyforurl\",1,\"http://a.example/\"]",
      "[\"mpbp-request-permission\",\"1\",0,1]",
      "[/**/\"mpbp-start\\u002dremoting\",\"a\"]",
      "[\"mpbp-stop-remoting\",1]",
  };
  for (size_t i = 0; i < std::size(texts); ++i) {
    EXPECT_EQ(page_->Send(texts[i]).exception, std::nullopt);
    ASSERT_TRUE(RunUntil([&] { return texts_.size() > i; })) << texts[i];
    const Json::Value echo = ParseJson(texts_[i]).value_or(Json::nullValue);
    EXPECT_EQ(AsString(ElementAt(echo, 0)), "echo-quoted");
    EXPECT_EQ(AsString(ElementAt(echo, 1)), texts[i]);
  }
  EXPECT_EQ(page_->Send("the end").exception, std::nullopt);
  ASSERT_TRUE(RunUntilText("the end"));
  EXPECT_EQ(texts_.size(), std::size(texts) + 1);  // no answer of the plug-in's was passed on
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace mpbp::test
