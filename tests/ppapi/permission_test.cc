#include "tests/ppapi/service_fixture.h"

namespace mpbp::test {
namespace {

using host::ParlOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Texts = std::vector<std::string>;

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
  Texts AnswersTo(const Texts& requests) {
    engine_->received.clear();
    texts_.clear();
    for (const std::string& text : requests) engine_->Send(text);
    engine_->Send("[\"end\"]");
    EXPECT_TRUE(RunUntil([this] { return CountTexts("[\"end\"]") > 0; }));
    // Every answer is there once this one is, which is asked for when the others have completed.
    engine_->Send(Permission(",\"last\",0,0"));
    EXPECT_TRUE(RunUntil([this] {
      return !engine_->received.empty() &&
             engine_->received.back().find("\"last\"") != std::string::npos;
    }));
    EXPECT_THAT(texts_, ElementsAre("[\"end\"]"));
    Texts answers = engine_->received;
    if (!answers.empty()) answers.pop_back();
    return answers;
  }
};

TEST_F(PermissionTest, RequestsReachTheBrowserAndTheirAnswersTheEngine) {
  StartWith({.offer_1_0 = true, .offer_2_0 = true});
  EXPECT_FALSE(host_.asked_interfaces().contains("PPB_Parl_Private;1.0"));
  EXPECT_THAT(AnswersTo({Permission(",\"a\",1,7"), Permission(",\"\",\"2\",\"4294967295\""),
                         Permission(",\"c\",0,0,\"more\"")}),
              ElementsAre(Result("1,\"a\",7,true"), Result("2,\"\",4294967295,true"),
                          Result("0,\"c\",0,true")));
  Texts kinds;
  for (const auto& request : host_.permission_requests()) {
    EXPECT_EQ(request.instance, page_->instance());
    kinds.push_back(std::to_string(request.kind));
  }
  EXPECT_THAT(kinds, ElementsAre("1", "2", "0", "0"));
}

TEST_F(PermissionTest, AMalformedRequestIsLoggedAndNotAnswered) {
  const std::string unreadable[] = {
      Permission(""),
      Permission(",\"a\",1"),
      Permission(",5,1,7"),
      Permission(",\"a\",1.5,7"),
      Permission(",\"a\",\"\",7"),
      Permission(",\"a\",\"1x\",7"),
      Permission(",\"a\",1,-1"),
      Permission(",\"a\",1,4294967296"),
      Permission(",\"a\",1,\"4294967296\""),
      Permission(",\"a\",null,7"),
      "[\"mpbp-start-remoting\"]",
      "[\"mpbp-start-remoting\",1]",
      "[\"mpbp-stop-remoting\",null]",
  };
  StartWith({.offer_2_0 = true});
  EXPECT_THAT(AnswersTo(Texts(std::begin(unreadable), std::end(unreadable))), IsEmpty());
  for (const std::string& text : unreadable) {
    EXPECT_THAT(Log(), HasSubstr("Invalid message. Failed to parse arguments: " + text + "\n"));
  }
  for (const std::string kind : {"3", "-1", "\"3\"", "2147483647"}) {
    const std::string text = Permission(",\"a\"," + kind + ",7");
    EXPECT_THAT(AnswersTo({text}), IsEmpty());
    EXPECT_THAT(Log(), HasSubstr("Invalid message. Invalid permission type: " + text + "\n"));
  }
}

TEST_F(PermissionTest, AnythingElseGoesToThePage) {
  const Texts texts = {"not JSON",
                       "[\"mpbp-request-permission\"",
                       "[\"mpbp-request-permissions\",\"a\",1,7]",
                       "[[\"mpbp-request-permission\"],\"a\",1,7]",
                       "{\"mpbp-request-permission\":1}",
                       "[]",
                       "5"};
  StartWith({.offer_2_0 = true});
  for (const std::string& text : texts) engine_->Send(text);
  EXPECT_TRUE(RunUntil([&] { return texts_.size() >= texts.size(); }));
  EXPECT_EQ(texts_, texts);
  for (const char* text : {"not JSON", "[\"mpbp-request-permission\""}) {
    EXPECT_THAT(Log(), HasSubstr("HandleMessage couldn't parse JSON (" + std::string(text) +
                                 "), error is : * Line 1, Column"));
  }
  EXPECT_THAT(engine_->received, IsEmpty());
}

TEST_F(PermissionTest, OnlyTheResultOneGrants) {
  StartWith({.offer_2_0 = true});
  const std::pair<int32_t, const char*> cases[] = {
      {1, "true"}, {0, "false"}, {2, "false"}, {-40, "false"}};
  for (const auto& [result, granted] : cases) {
    host_.options().parl.permission_result = result;
    EXPECT_THAT(AnswersTo({Permission(",\"a\",1,7")}),
                ElementsAre(Result("1,\"a\",7," + std::string(granted))));
  }
  EXPECT_THAT(Log(), HasSubstr("Permission request failed. permission_type 1, error -40\n"));
  EXPECT_THAT(Log(), Not(HasSubstr("permission_type 1, error 0")));
}

// A call that does not wait for its callback has failed, whatever it returns.
TEST_F(PermissionTest, ACallThatIsRefusedIsAnsweredAtOnce) {
  StartWith({.offer_2_0 = true, .start_return = -4, .stop_return = -12});
  for (const int32_t code : {0, 1, -7}) {
    host_.options().parl.permission_return = code;
    const std::string text = Permission(",\"p\",2,5");
    EXPECT_THAT(AnswersTo({text}), ElementsAre(Result("2,\"p\",5,false")));
    EXPECT_THAT(Log(), HasSubstr("RequestPermission failed. message " + text + ", error " +
                                 std::to_string(code) + "\n"));
  }
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"s\"]", "[\"mpbp-start-remoting\",\"\"]",
                         "[\"mpbp-stop-remoting\",\"s\"]"}),
              ElementsAre(Terminate("s"), Terminate("")));
  EXPECT_THAT(
      Log(),
      HasSubstr("StartRemoting failed. message [\"mpbp-start-remoting\",\"s\"], error -4\n"));
  EXPECT_THAT(
      Log(), HasSubstr("StopRemoting failed. message [\"mpbp-stop-remoting\",\"s\"], error -12\n"));
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
  EXPECT_THAT(Log(), HasSubstr("Received error event. Sending terminate event.\n"));
  for (const int32_t unknown : {2, -1}) {
    EXPECT_THAT(answers_to_event(unknown), IsEmpty());
    EXPECT_THAT(Log(), HasSubstr("Unknown event " + std::to_string(unknown) + "\n"));
  }
  // A start that fails leaves the session that there is; one that succeeds takes its place.
  host_.options().parl.start_result = -2;
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"two\"]", "[\"mpbp-start-remoting\",\"\"]"}),
              ElementsAre(Terminate("two")));
  EXPECT_THAT(Log(), HasSubstr("StartRemoting failed. Error -2\n"));
  EXPECT_THAT(answers_to_event(0), ElementsAre(Terminate("one")));
  host_.options().parl.start_result = 0;
  EXPECT_THAT(AnswersTo({"[\"mpbp-start-remoting\",\"three\"]"}), IsEmpty());
  EXPECT_THAT(answers_to_event(0), ElementsAre(Terminate("three")));

  EXPECT_THAT(AnswersTo({"[\"mpbp-stop-remoting\",\"any\"]"}), IsEmpty());
  EXPECT_THAT(Log(), HasSubstr("StopRemoting failed. Error 0\n"));  // that is what it says
  EXPECT_THAT(answers_to_event(0), IsEmpty());
}

TEST_F(PermissionTest, WhatTheBrowsersVersionCannotDoFails) {
  const struct {
    const char* version;
    ParlOptions parl;
    std::string kind_0_granted;
  } cases[] = {{"1.0", {.offer_1_0 = true}, "true"}, {"none", {}, "false"}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.version);
    StartWith(row.parl);
    EXPECT_EQ(host_.live_resources(), row.parl.offer_1_0 ? 1u : 0u);
    EXPECT_THAT(
        AnswersTo({Permission(",\"a\",0,7"), Permission(",\"b\",1,8"), Permission(",\"c\",2,9"),
                   "[\"mpbp-start-remoting\",\"s\"]", "[\"mpbp-stop-remoting\",\"s\"]"}),
        ElementsAre(Result("0,\"a\",7," + row.kind_0_granted), Result("1,\"b\",8,false"),
                    Result("2,\"c\",9,false"), Terminate("s")));
    for (const char* kind : {"1", "2"}) {
      EXPECT_THAT(Log(), HasSubstr("Permission request failed. permission_type " +
                                   std::string(kind) + ", error -6\n"));
    }
    EXPECT_EQ(Log().find("permission_type 0, error -6\n") == std::string::npos, row.parl.offer_1_0);
    EXPECT_THAT(Log(), HasSubstr("StartRemoting failed. Error -6\n"));
    EXPECT_THAT(Log(), HasSubstr("StopRemoting failed. Error -6\n"));
    End();
  }
}

TEST_F(PermissionTest, CallbacksThatComeAfterTheInstanceFindNothing) {
  StartWith({.offer_2_0 = true, .delay_ms = 60'000});
  for (const std::string& text :
       {Permission(",\"a\",1,7"), std::string("[\"mpbp-start-remoting\",\"s\"]"),
        std::string("[\"mpbp-stop-remoting\",\"s\"]"), std::string("[\"end\"]")}) {
    engine_->Send(text);
  }
  ASSERT_TRUE(RunUntil([this] { return CountTexts("[\"end\"]") > 0; }));
  page_->DestroyInstance();
  EXPECT_TRUE(host_.loop().Drain(100));  // they come now, with the module still there
  EXPECT_THAT(Log(), Not(HasSubstr("failed.")));
  OpenPage();
  EXPECT_THAT(engine_->received, IsEmpty());
}

TEST_F(PermissionTest, APageCannotGiveTheBrowsersAnswer) {
  StartWith({.offer_2_0 = true});
  for (const std::string& text :
       {Result("1,\"a\",7,true"), std::string("x mpbp-request-permission-result x"),
        std::string(R"(["mpbp-request\u002dpermission-result",1,"a",7,true])")}) {
    EXPECT_EQ(page_->Send(text).exception, "Method call not allowed") << text;
  }
  // The request itself is a text like any other when the page sends it.
  EXPECT_EQ(page_->Send(Permission(",\"a\",1,7")).exception, std::nullopt);
  EXPECT_TRUE(RunUntil([this] { return !engine_->received.empty(); }));
  EXPECT_THAT(engine_->received, ElementsAre(Permission(",\"a\",1,7")));
  EXPECT_THAT(host_.permission_requests(), IsEmpty());
}

}  // namespace
}  // namespace mpbp::test
