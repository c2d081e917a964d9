#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

using host::ParlOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Texts = std::vector<std::string>;

constexpr char kStart[] = R"(["mpbp-start-remoting","s"])";
constexpr char kStop[] = R"(["mpbp-stop-remoting","s"])";

std::string Permission(const std::string& arguments) {
  return "[\"mpbp-request-permission\"" + arguments + "]";
}
std::string Result(const std::string& arguments) {
  return "[\"mpbp-request-permission-result\"," + arguments + "]";
}
std::string Terminate(const std::string& id) {
  return "[\"mpbp-terminate-remoting-event\",\"\",\"" + id + "\"]";
}

class PermissionTest : public ServiceTest {
 protected:
  void StartWith(const ParlOptions& parl) { Start({.parl = parl}); }
  // The answers to `requests`, none of which may reach the page.
  Texts AnswersTo(Texts requests) {
    texts_.clear();
    requests.push_back("[\"end\"]");
    Ask(requests, 0);
    EXPECT_TRUE(RunUntilText("[\"end\"]"));
    EXPECT_THAT(texts_, ElementsAre("[\"end\"]"));
    // Every answer is there once this one is, which is asked for when the others have completed.
    Texts& answers = engine_->received;
    engine_->Send(Permission(",\"last\",0,0"));
    EXPECT_TRUE(RunUntil(
        [&] { return !answers.empty() && answers.back().find("\"last\"") != std::string::npos; }));
    if (!answers.empty()) answers.pop_back();
    return answers;
  }
  void ExpectLogged(const std::string& line) { EXPECT_THAT(Log(), HasSubstr(line + "\n")); }
};

TEST_F(PermissionTest, RequestsReachTheBrowserAndTheirAnswersTheEngine) {
  StartWith({.offer_1_0 = true, .offer_2_0 = true});
  EXPECT_FALSE(host_.asked_interfaces().contains("PPB_Parl_Private;1.0"));
  EXPECT_THAT(AnswersTo({Permission(",\"a\",1,7"), Permission(",\"\",\"2\",\"4294967295\""),
                         Permission(",\"c\",0,0,\"more\"")}),
              ElementsAre(Result("1,\"a\",7,true"), Result("2,\"\",4294967295,true"),
                          Result("0,\"c\",0,true")));
  std::string kinds;
  for (const auto& request : host_.permission_requests()) {
    EXPECT_EQ(request.instance, page_->instance());
    kinds += std::to_string(request.kind);
  }
  EXPECT_EQ(kinds, "1200");
}

TEST_F(PermissionTest, AMalformedRequestIsLoggedAndAnythingElseGoesToThePage) {
  const std::pair<const char*, Texts> cases[] = {
      {"Failed to parse arguments: ",
       {Permission(",\"a\",1"), Permission(",5,1,7"), Permission(",\"a\",1.5,7"),
        Permission(",\"a\",\"1x\",7"), Permission(",\"a\",1,-1"),
        Permission(",\"a\",1,\"4294967296\""), "[\"mpbp-start-remoting\",1]",
        "[\"mpbp-stop-remoting\",null]"}},
      {"Invalid permission type: ", {Permission(",\"a\",\"3\",7"), Permission(",\"a\",-1,7")}}};
  StartWith({.offer_2_0 = true});
  for (const auto& [complaint, texts] : cases) {
    EXPECT_THAT(AnswersTo(texts), IsEmpty());
    for (const std::string& text : texts) ExpectLogged("Invalid message. " + (complaint + text));
  }

  // Anything else is the page's.
  const Texts texts = {"[\"mpbp-request-permission\"",
                       "[\"mpbp-request-permissions\",\"a\",1,7]",
                       "[[\"mpbp-request-permission\"],\"a\",1,7]",
                       "{\"mpbp-request-permission\":1}",
                       "[]",
                       "[1,"};
  texts_.clear();
  Ask(texts, 0);
  EXPECT_TRUE(RunUntil([&] { return texts_.size() >= texts.size(); }));
  EXPECT_EQ(texts_, texts);
  for (const std::string& broken : {texts.front(), texts.back()}) {
    EXPECT_THAT(Log(), HasSubstr("HandleMessage couldn't parse JSON (" + broken +
                                 "), error is : * Line 1, Column"));
  }
  EXPECT_THAT(engine_->received, IsEmpty());
}

// A call that does not wait for its callback has failed, whatever it returns.
TEST_F(PermissionTest, OnlyACompletionWithOneGrantsAndARefusedCallIsAnsweredAtOnce) {
  StartWith({.offer_2_0 = true, .start_return = -4, .stop_return = -12});
  for (const int32_t result : {1, 0, 2, -40}) {
    host_.options().parl.permission_result = result;
    EXPECT_THAT(AnswersTo({Permission(",\"a\",1,7")}),
                ElementsAre(Result(result == 1 ? "1,\"a\",7,true" : "1,\"a\",7,false")));
  }
  ExpectLogged("Permission request failed. permission_type 1, error -40");
  EXPECT_THAT(Log(), Not(HasSubstr("permission_type 1, error 0")));
  for (const int32_t code : {0, 1, -7}) {
    host_.options().parl.permission_return = code;
    const std::string text = Permission(",\"p\",2,5");
    EXPECT_THAT(AnswersTo({text}), ElementsAre(Result("2,\"p\",5,false")));
    ExpectLogged("RequestPermission failed. message " + text + ", error " + std::to_string(code));
  }
  EXPECT_THAT(AnswersTo({kStart, "[\"mpbp-start-remoting\",\"\"]", kStop}),
              ElementsAre(Terminate("s"), Terminate("")));
  ExpectLogged(std::string("StartRemoting failed. message ") + kStart + ", error -4");
  ExpectLogged(std::string("StopRemoting failed. message ") + kStop + ", error -12");
}

TEST_F(PermissionTest, AnEventOfTheBrowserEndsTheSessionUntilTheEngineHasStoppedIt) {
  StartWith({.offer_2_0 = true});
  const auto answers_to_event = [this](int32_t event) {
    EXPECT_TRUE(page_->FireRemotingEvent(event));
    return AnswersTo({});
  };
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"one\"]"}), IsEmpty());
  EXPECT_THAT(answers_to_event(0), ElementsAre(Terminate("one")));
  EXPECT_THAT(Log(), Not(HasSubstr(" event")));
  EXPECT_THAT(answers_to_event(1), ElementsAre(Terminate("one")));
  EXPECT_THAT(answers_to_event(-1), IsEmpty());
  ExpectLogged("Received error event. Sending terminate event.");
  ExpectLogged("Unknown event -1");
  // A start that fails leaves the session that there is; one that succeeds takes its place.
  host_.options().parl.start_result = -2;
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"two\"]", "[\"mpbp-start-remoting\",\"\"]"}),
              ElementsAre(Terminate("two")));
  ExpectLogged("StartRemoting failed. Error -2");
  EXPECT_THAT(answers_to_event(0), ElementsAre(Terminate("one")));
  host_.options().parl.start_result = 0;
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"three\"]"}), IsEmpty());
  EXPECT_THAT(answers_to_event(0), ElementsAre(Terminate("three")));

  EXPECT_THAT(AnswersTo({"[\"mpbp-stop-remoting\",\"any\"]"}), IsEmpty());
  ExpectLogged("StopRemoting failed. Error 0");  // that is what it says
  EXPECT_THAT(answers_to_event(0), IsEmpty());
}

TEST_F(PermissionTest, WhatTheBrowsersVersionCannotDoFails) {
  for (const bool has_1_0 : {true, false}) {
    SCOPED_TRACE(has_1_0);
    StartWith({.offer_1_0 = has_1_0});
    EXPECT_EQ(host_.live_resources(), has_1_0 ? 1u : 0u);
    EXPECT_THAT(AnswersTo({Permission(",\"a\",0,7"), Permission(",\"b\",1,8"),
                           Permission(",\"c\",2,9"), kStart, kStop}),
                ElementsAre(Result(has_1_0 ? "0,\"a\",7,true" : "0,\"a\",7,false"),
                            Result("1,\"b\",8,false"), Result("2,\"c\",9,false"), Terminate("s")));
    for (const int kind : {0, 1, 2}) {
      const std::string line =
          "Permission request failed. permission_type " + std::to_string(kind) + ", error -6\n";
      EXPECT_EQ(Log().find(line) == std::string::npos, has_1_0 && kind == 0);
    }
    for (const std::string call : {"Start", "Stop"}) {
      ExpectLogged(call + "Remoting failed. Error -6");
    }
    End();
  }
}

TEST_F(PermissionTest, CallbacksThatComeAfterTheInstanceFindNothing) {
  StartWith({.offer_2_0 = true, .delay_ms = 60'000});
  Ask({Permission(",\"a\",1,7"), kStart, kStop, "[\"end\"]"}, 0);
  ASSERT_TRUE(RunUntilText("[\"end\"]"));
  page_->DestroyInstance();
  EXPECT_TRUE(host_.loop().Drain(100));  // they come now, with the module still there
  EXPECT_THAT(Log(), Not(HasSubstr("failed.")));
  ConnectPage();
  EXPECT_THAT(engine_->received, IsEmpty());
}

}  // namespace
}  // namespace mpbp::test
