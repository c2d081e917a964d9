#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "host/utf8.h"
#include "tests/host/test_module.h"

namespace mpbp::host {
namespace {

using test::test_module_state;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr EntryPoints kTestModule = {&PPP_InitializeModule, &PPP_GetInterface, &PPP_ShutdownModule};
const char kUrl[] = "https://www.murmel.example/call";

class HostTest : public testing::Test {
 protected:
  HostTest() {
    host_.options().parl.offer_2_0 = true;
    EXPECT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
    page_ = host_.CreatePage(kUrl);
  }
  void ExpectCleanEnd() {
    host_.Unload();
    EXPECT_THAT(host_.Misuse(), IsEmpty());
    EXPECT_THAT(host_.LeakedVars(), IsEmpty());
    EXPECT_THAT(host_.LeakedResources(), IsEmpty());
    EXPECT_EQ(host_.leaked(), 0u);
  }
  static const std::vector<std::string>& Events() { return test_module_state().events; }

  Host host_;
  std::shared_ptr<Page> page_;
};

TEST_F(HostTest, ValuesPassBothWaysUnchanged) {
  const Value function = MakeFunction([](const Values&) { return Result(); });
  for (const Value& value :
       {Value(), Value(Null{}), Value(true), Value(-7), Value(0.5), Value(std::string("a\0b", 3)),
        Value(std::string()), function, MakeObject()}) {
    const Result result = page_->Call("echo", {value});
    EXPECT_EQ(result.exception, std::nullopt);
    EXPECT_EQ(result.value, value) << ToText(value);
  }
  EXPECT_EQ(page_->Call("href", {}).value, Value(kUrl));
  EXPECT_EQ(page_->Call("badText", {}).value, Value(Null{}));
  ExpectCleanEnd();
}

TEST_F(HostTest, UnknownNamesNeverReachTheModule) {
  EXPECT_EQ(page_->Get("src").value, Value());
  EXPECT_EQ(page_->Set("src", 1).exception, std::nullopt);
  EXPECT_EQ(page_->Get("src").value, Value(1));
  EXPECT_EQ(page_->Has("nothing").value, Value(false));
  EXPECT_GE(test_module_state().has_property_calls, 8);
  EXPECT_EQ(test_module_state().get_property_calls, 0);
  EXPECT_EQ(page_->Call("nothing", {}).exception, "nothing is not a function");
  // Nobody asks before a call of the object itself.
  Thrown thrown;
  page_->Element().get()->Call("nothing", {}, thrown);
  EXPECT_EQ(thrown, "no such method");
  ExpectCleanEnd();
}

TEST_F(HostTest, ExceptionsCrossInBothDirections) {
  EXPECT_EQ(page_->Get("broken").exception, "it is broken");
  EXPECT_EQ(page_->Call("call", {}).exception, std::nullopt);  // no listener: the call throws...
  host_.ClearMisuse();                                         // ...and calling undefined is misuse
  page_->Set("onmessage", MakeFunction([](const Values&) { return Result{{}, "thrown"}; }));
  EXPECT_EQ(page_->Call("call", {}).value, Value("thrown"));
  page_->Set("onmessage",
             MakeFunction([](const Values&) -> Result { throw std::runtime_error("C++"); }));
  EXPECT_EQ(page_->Call("call", {}).value, Value("C++"));
  EXPECT_EQ(page_->Call("callNull", {}).value, Value("method name is null"));
  page_->Set("onmessage", MakeObject());
  EXPECT_EQ(page_->Call("call", {}).value, Value("object is not a function"));
  ExpectCleanEnd();
}

TEST_F(HostTest, ThePageMayDoAnythingInsideItsCallback) {
  std::vector<std::string> seen;
  page_->SetOnMessage([&](const std::string& text) {
    seen.push_back(text);
    if (text == "first") {
      page_->SetOnMessage([&](const std::string& later) { seen.push_back("new " + later); });
      page_->Call("call", {"nested"});
    } else if (text == "clear") {
      page_->ClearOnMessage();
    }
  });
  page_->Call("call", {"first"});
  EXPECT_THAT(seen, ElementsAre("first", "new nested"));
  page_->SetOnMessage([&](const std::string&) {
    page_->ClearOnMessage(Undefined{});
    page_->DestroyInstance();
    EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate"));
    EXPECT_EQ(page_->Get("onmessage").value, Value());
  });
  EXPECT_EQ(page_->Call("call", {"last"}).exception, std::nullopt);
  EXPECT_EQ(page_->Call("call", {}).exception, "call is not a function");
  ExpectCleanEnd();
}

TEST_F(HostTest, AReferenceOfScriptKeepsTheObjectUntilItGoesUnlessForced) {
  ObjectRef held = page_->Element();
  page_->DestroyInstance();
  Thrown thrown;
  EXPECT_EQ(held.get()->Call("echo", {5}, thrown), Value(5));
  EXPECT_THAT(Events(), ElementsAre("create", "destroy"));
  held.Reset();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate"));

  host_.options().force_deallocate = true;
  const auto other = host_.CreatePage(kUrl);
  held = other->Element();
  other->DestroyInstance();
  EXPECT_EQ(Events().back(), "deallocate");
  held.get()->Call("echo", {5}, thrown);
  EXPECT_EQ(thrown, "the plug-in object is gone");
  ExpectCleanEnd();
}

TEST_F(HostTest, ARefusedPageIsDestroyedAndHasNoObject) {
  const auto refused = host_.CreatePage(kUrl, {{"refuse", ""}});
  EXPECT_FALSE(refused->has_plugin());
  EXPECT_THAT(Events(), ElementsAre("create", "create", "destroy"));
  EXPECT_FALSE(refused->Element());
  EXPECT_FALSE(refused->SendInputEvent());
  EXPECT_EQ(refused->Send("x").exception, "send is not a function");
  ExpectCleanEnd();
}

TEST_F(HostTest, CallbacksRunInOrderOfTheirTimeAndNeverInsideTheCall) {
  page_->Call("later", {60});
  page_->Call("later", {20});
  page_->Call("later", {0});
  page_->Call("fromThread", {});
  EXPECT_THAT(Events(), ElementsAre("create"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(host_.RunUntil([] { return Events().back() == "late:60"; }, 5000));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_THAT(Events(), ElementsAre("create", "late:0", "thread:7", "late:20", "late:60"));
  ExpectCleanEnd();
}

TEST_F(HostTest, PendingCallbacksRunLateOrNeverAsTheOptionsSay) {
  page_->Call("later", {60000});
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate", "late:60000", "shutdown"));
  host_.options().drop_pending = true;
  ASSERT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
  page_ = host_.CreatePage(kUrl);
  page_->Call("later", {0});
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate", "shutdown"));
}

TEST_F(HostTest, TheMainLoopServesDescriptorsAndNestedRuns) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  int ready = 0;
  int watch = 0;
  watch = host_.loop().Watch(fds[0], POLLIN, [&] {
    ++ready;
    host_.loop().Unwatch(watch);
  });
  host_.loop().Post(0, [&] {
    EXPECT_EQ(write(fds[1], "x", 1), 1);
    EXPECT_TRUE(host_.RunUntil([&] { return ready == 1; }, 5000));
    ++ready;
  });
  EXPECT_TRUE(host_.RunUntil([&] { return ready == 2; }, 5000));
  EXPECT_FALSE(host_.RunUntil([&] { return ready == 3; }, 30));
  close(fds[0]);
  close(fds[1]);
}

TEST_F(HostTest, ThePrivateServiceAnswersAsTheOptionsSay) {
  EXPECT_FALSE(page_->FireRemotingEvent(1));
  host_.options().parl.permission_result = -7;
  EXPECT_EQ(page_->Call("remote", {}).value, Value(-1));
  EXPECT_THAT(Events(), ElementsAre("create"));
  host_.RunFor(1);
  EXPECT_TRUE(page_->FireRemotingEvent(1));
  EXPECT_THAT(Events(),
              ElementsAre("create", "permission:-7", "started:0", "stopped:0", "event:1"));
  host_.options().parl.stop_return = -5;
  EXPECT_EQ(page_->Call("remote", {}).value, Value(-5));
  page_->DestroyInstance();
  host_.RunFor(1);
  EXPECT_EQ(Events().back(), "started:-3");
  ASSERT_EQ(host_.permission_requests().size(), 2u);
  EXPECT_EQ(host_.permission_requests()[1].kind, 2);
  ExpectCleanEnd();
}

TEST_F(HostTest, FaultsOfTheModuleAreRecorded) {
  const struct {
    const char* method;
    const char* misuse;
  } faults[] = {{"overRelease", "is not alive"},
                {"dirtyException", "was not undefined before the call"},
                {"offThread", "called off the main thread"},
                {"freeForeign", "was not made by MemAlloc"},
                {"call", "called on undefined"}};
  for (const auto& fault : faults) {
    host_.ClearMisuse();
    page_->Call(fault.method, {});
    ASSERT_FALSE(host_.Misuse().empty()) << fault.method;
    EXPECT_THAT(host_.Misuse().front(), HasSubstr(fault.misuse));
  }
  host_.ClearMisuse();
  EXPECT_THAT(page_->Enumerate(), IsEmpty());
  EXPECT_THAT(host_.Misuse(), ElementsAre(HasSubstr("2 names in a block of 16 bytes")));
  page_->SetOnMessage([](const std::string&) {});
  EXPECT_THAT(page_->Enumerate(), ElementsAre("onmessage", "broken"));
}

TEST_F(HostTest, WhatTheModuleKeepsIsCounted) {
  page_->Call("leak", {});
  page_->Call("leakLoader", {});
  host_.Unload();
  EXPECT_THAT(host_.LeakedVars(), ElementsAre("\"leaked\" with 1 references"));
  EXPECT_THAT(host_.LeakedResources(), ElementsAre("URL loader with 1 references"));
  EXPECT_EQ(host_.leaked(), 2u);
}

TEST(HostLoad, LoadsOneFileAfterTheOtherAndSaysWhatIsWrong) {
  Host host;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(host.Load(TEST_MODULE), std::nullopt);
    const auto page = host.CreatePage(kUrl);
    EXPECT_EQ(page->Call("echo", {1}).value, Value(1));
    EXPECT_THAT(host.asked_interfaces(), testing::Contains("PPB_Var;1.1"));
    host.Unload();
    EXPECT_FALSE(page->has_plugin());
    EXPECT_EQ(page->Call("echo", {1}).exception, "echo is not a function");
  }
  EXPECT_EQ(host.leaked(), 0u);
  host.options().withheld = {"PPB_Var;1.1"};
  EXPECT_EQ(host.Load(TEST_MODULE), "PPP_InitializeModule returned -2");
  EXPECT_FALSE(host.loaded());
  EXPECT_EQ(host.Load("/nonexistent.so"), "cannot read /nonexistent.so: No such file or directory");
  EXPECT_THAT(host.Load(EMPTY_MODULE).value_or(""),
              HasSubstr("has no entry point PPP_InitializeModule"));
  EXPECT_THAT(host.Load("/dev/null").value_or(""), HasSubstr("cannot load /dev/null"));
}

TEST(Utf8, OnlyWellFormedTextIsValid) {
  for (const std::string valid : {"", "a", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                  "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(IsValidUtf8(valid)) << testing::PrintToString(valid);
  }
  EXPECT_TRUE(IsValidUtf8(std::string_view("\0x\0", 3)));
  for (const std::string bad :
       {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80", "\xE2\x82", "\xC2", "a\xFF", "\xE2\x28\xA1"}) {
    EXPECT_FALSE(IsValidUtf8(bad)) << testing::PrintToString(bad);
  }
}

}  // namespace
}  // namespace mpbp::host
