// What the module itself cannot show: the faults that the host finds, and the browser's own order.
#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/host/test_module.h"

namespace mpbp::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr EntryPoints kTestModule = {&PPP_InitializeModule, &PPP_GetInterface, &PPP_ShutdownModule};
const char kUrl[] = "https://www.murmel.example/call";

class HostTest : public testing::Test {
 protected:
  HostTest() {
    EXPECT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
    page_ = host_.CreatePage(kUrl);
  }
  ~HostTest() override {
    host_.Unload();
    EXPECT_THAT(host_.Misuse(), IsEmpty());
    EXPECT_EQ(host_.leaked(), expected_leaks_);
  }
  static const std::vector<std::string>& Events() { return test::test_module_events(); }

  Host host_;
  std::shared_ptr<Page> page_;
  size_t expected_leaks_ = 0;
};

TEST_F(HostTest, ValuesAndExceptionsPassBothWaysUnchanged) {
  const Value function = MakeFunction([](const Values&) { return Result(); });
  for (const Value& value : {Value(), Value(Null{}), Value(true), Value(-7), Value(0.5),
                             Value(std::string("a\0b", 3)), function, MakeObject()}) {
    const Result result = page_->Call("echo", {value});
    EXPECT_EQ(result.exception, std::nullopt);
    EXPECT_EQ(result.value, value) << ToText(value);
  }
  EXPECT_EQ(page_->Call("throw", {}).exception, "no");
  EXPECT_EQ(page_->Call("send", {}).exception, "send is not a function");
  page_->Set("src", 1);  // unknown to the module, kept by the element
  EXPECT_EQ(page_->Get("src").value, Value(1));
  page_->Set("onmessage", MakeFunction([](const Values&) { return Result{{}, "thrown"}; }));
  EXPECT_EQ(page_->Call("call", {1}).value, Value("thrown"));
  page_->Set("onmessage",
             MakeFunction([](const Values&) -> Result { throw std::logic_error("C++"); }));
  EXPECT_EQ(page_->Call("call", {1}).value, Value("C++"));
  page_->Set("onmessage", MakeObject());
  EXPECT_EQ(page_->Call("call", {1}).value, Value("object is not a function"));
}

TEST_F(HostTest, TheObjectGoesWithTheLastReferenceOrWhenForced) {
  page_->SetOnMessage([&](const std::string&) {
    page_->ClearOnMessage(Undefined{});
    page_->DestroyInstance();
    EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate"));
  });
  EXPECT_EQ(page_->Call("call", {"last"}).exception, std::nullopt);
  EXPECT_EQ(page_->Call("call", {}).exception, "call is not a function");
  for (const bool force : {false, true}) {
    host_.options().force_deallocate = force;
    page_ = host_.CreatePage(kUrl);
    ObjectRef held = page_->Element();
    page_->DestroyInstance();
    EXPECT_EQ(Events().back(), force ? "deallocate" : "destroy");
    Thrown thrown;
    EXPECT_EQ(held.get()->Call("echo", {5}, thrown), force ? Value() : Value(5));
    EXPECT_EQ(thrown, force ? Thrown("the plug-in object is gone") : std::nullopt);
    held.Reset();
    EXPECT_EQ(Events().back(), "deallocate");
  }
  const auto refused = host_.CreatePage(kUrl, {{"refuse", ""}});
  EXPECT_FALSE(refused->has_plugin());
  EXPECT_FALSE(refused->Element());
  EXPECT_EQ(Events().back(), "destroy");
}

TEST_F(HostTest, CallbacksRunInOrderOfTheirTimeAndNeverInsideTheCallAndLateOrNeverAtTheEnd) {
  const auto start = std::chrono::steady_clock::now();
  for (const int delay : {800, 60000, 0}) page_->Call("later", {delay});
  EXPECT_THAT(Events(), ElementsAre("create"));
  EXPECT_TRUE(host_.RunUntil([] { return Events().back() == "late:800"; }, 20000));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(800));
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "late:0", "late:800", "destroy", "deallocate",
                                    "late:60000", "shutdown"));
  host_.options().drop_pending = true;
  ASSERT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
  host_.CreatePage(kUrl)->Call("later", {0});
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate", "shutdown"));
}

TEST_F(HostTest, FaultsOfTheModuleAreRecorded) {
  const struct {
    const char* method;
    const char* misuse;
  } faults[] = {{"overRelease", "is not alive"},
                {"deadVar", "is not alive"},
                {"dirtyException", "was not undefined before the call"},
                {"offThread", "called off the main thread"},
                {"freeForeign", "was not made by MemAlloc"},
                {"call", "called on undefined"}};
  for (const auto& fault : faults) {
    page_->Call(fault.method, {1});
    ASSERT_FALSE(host_.Misuse().empty()) << fault.method;
    EXPECT_THAT(host_.Misuse().front(), HasSubstr(fault.misuse));
    host_.ClearMisuse();
  }
  EXPECT_THAT(page_->Enumerate(), IsEmpty());
  EXPECT_THAT(host_.Misuse(), ElementsAre(HasSubstr("2 names in a block of 16 bytes")));
  host_.ClearMisuse();
  page_->Call("leak", {});
  host_.Unload();
  EXPECT_THAT(host_.LeakedVars(), ElementsAre("\"leaked\" with 1 references"));
  EXPECT_THAT(host_.LeakedResources(), ElementsAre("URL loader with 1 references"));
  expected_leaks_ = 2;
}

TEST_F(HostTest, DestroyingTheInstanceAbortsWhatIsUnderWay) {
  page_->Call("open", {"http://127.0.0.1:1/"});
  page_->DestroyInstance();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate"));
  host_.RunFor(1);
  EXPECT_EQ(Events().back(), "opened:" + std::to_string(PP_ERROR_ABORTED));
}

}  // namespace
}  // namespace mpbp::host
