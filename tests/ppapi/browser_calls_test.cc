// A browser whose calls do more than they say: the page goes away inside them, or what they shall
// do later happens at once.
#include <map>

#include "tests/ppapi/module_fixture.h"
#include "tests/support/http_server.h"

namespace mpbp::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class BrowserCallsTest : public ServiceTest {
 protected:
  std::string HttpRequest(const std::string& path) const {
    return "[\"httprequest\",1,{\"host\":\"127.0.0.1\",\"path\":\"" + path +
           "\",\"port\":" + std::to_string(server_.port()) +
           ",\"proto\":\"http\",\"verb\":\"POST\"},\"X: y\",\"body\"]";
  }

  bool WasSent(const std::string& word) const {
    return std::any_of(engine_->received.begin(), engine_->received.end(),
                       [&](const std::string& text) { return text.find(word) != text.npos; });
  }

  // Everything that a page and its engine make the module ask of the browser. Inside the call
  // `ends_in` the page may go.
  void LiveALife(const host::ParlOptions& parl, std::function<void(const char*)> on_call,
                 const std::string& ends_in = "none") {
    host_.options() = {.longest_delay_ms = 2, .on_call = std::move(on_call), .parl = parl};
    texts_.clear();
    engine_.reset();  // takes its port file away
    engine_ = std::make_unique<FakeEngine>();
    CreatePage();
    const auto alive = [this] { return page_->has_plugin(); };
    Listen();
    RunUntil([&] { return !alive() || CountTexts(kReady) > 0; });
    page_->Enumerate();
    page_->Get("version");
    page_->Get("onmessage");
    page_->Send("text");
    page_->Send("[\"kill\"]");
    if (alive()) {
      for (const std::string& text :
           {HttpRequest("/x"), std::string(R"(["mpbp-request-permission","a",0,7])"),
            std::string(R"(["mpbp-start-remoting","s"])"),
            std::string(R"(["mpbp-stop-remoting","s"])"), std::string("[\"end\"]")}) {
        engine_->Send(text);
      }
      RunUntil([&] {
        return !alive() || (CountTexts("[\"end\"]") > 0 && WasSent("httpresponse") &&
                            WasSent("request-permission-result"));
      });
    }
    page_->ClearOnMessage();
    page_->DestroyInstance();
    host_.options().on_call = nullptr;
    host_.RunFor(5);
    page_.reset();
    host_.Unload();
    EXPECT_EQ(host_.leaked(), 0u) << testing::PrintToString(host_.LeakedVars())
                                  << testing::PrintToString(host_.LeakedResources());
    // That call goes on without its instance, which is this browser's doing.
    for (const std::string& text : host_.Misuse()) EXPECT_THAT(text, StartsWith(ends_in));
    host_.ClearMisuse();
  }

  HttpServer server_{[](const HttpServerRequest& request) {
    return HttpServerResponse{.body = std::string(request.path == "/big" ? 20 << 20 : 3000, 'x')};
  }};
};

TEST_F(BrowserCallsTest, ThePageMayGoInsideEveryCall) {
  for (const host::ParlOptions& parl :
       {host::ParlOptions{.offer_2_0 = true}, host::ParlOptions{.offer_1_0 = true}}) {
    std::map<std::string, size_t> calls;
    LiveALife(parl, [&](const char* name) { ++calls[name]; });
    ASSERT_GT(calls.size(), 20u);
    for (const auto& [name, count] : calls) {
      for (const size_t at : {size_t{0}, size_t{1}, count / 2, count - 1}) {
        if (at >= count) continue;
        SCOPED_TRACE(name + " " + std::to_string(at));
        size_t seen = 0;
        LiveALife(
            parl,
            [&, wanted = name](const char* called) {
              if (called == wanted && seen++ == at) host_.DestroyInstances();
            },
            name);
      }
    }
  }
}

TEST_F(BrowserCallsTest, CallbacksMayComeInsideTheCall) {
  host_.options() = {.complete_inside = true, .parl = {.offer_2_0 = true}};
  ConnectPage();
  // 20,000 reads, none of which may leave anything on the stack.
  EXPECT_THAT(Ask({HttpRequest("/big")}, 1), ElementsAre(HasSubstr(std::string(20 << 20, 'x'))));
  EXPECT_THAT(Ask({R"(["mpbp-request-permission","a",1,7])"}, 1),
              ElementsAre(R"(["mpbp-request-permission-result",1,"a",7,true])"));
  // No text but these answers: the failed start is told once.
  host_.options().parl.start_result = -2;
  EXPECT_THAT(Ask({R"(["mpbp-start-remoting","s"])"}, 1),
              ElementsAre(R"(["mpbp-terminate-remoting-event","","s"])"));
  host_.RunFor(250);
  EXPECT_EQ(engine_->received.size(), 1u);
  page_.reset();
  host_.Unload();
  host_.options().parl = {};
  ConnectPage();
  EXPECT_THAT(Ask({R"(["mpbp-request-permission","a",1,7])"}, 1),
              ElementsAre(R"(["mpbp-request-permission-result",1,"a",7,false])"));
}

}  // namespace
}  // namespace mpbp::test
