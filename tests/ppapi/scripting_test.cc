#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

using host::Null;
using host::Undefined;
using host::Value;
using testing::ElementsAre;

class Scripting : public ModuleTest {
 protected:
  void SetUp() override {
    CreatePage();
    ASSERT_TRUE(page_->has_plugin());
  }
  // Past the questions that a browser asks first, so that every name reaches the module.
  host::Thrown Read(const Value& name) {
    host::Thrown thrown;
    page_->Element().get()->GetProperty(name, thrown);
    return thrown;
  }
  host::Thrown Write(const Value& name, const Value& value) {
    host::Thrown thrown;
    page_->Element().get()->SetProperty(name, value, thrown);
    return thrown;
  }
  host::Thrown CallMethod(const Value& name, const host::Values& arguments) {
    host::Thrown thrown;
    page_->Element().get()->Call(name, arguments, thrown);
    return thrown;
  }
};

TEST_F(Scripting, ShowsThreePropertiesAndOneMethod) {
  EXPECT_THAT(page_->Enumerate(), ElementsAre("onmessage", "onerror", "version"));
  for (const char* const name : {"onmessage", "onerror", "version", "send"}) {
    EXPECT_EQ(page_->Has(name).value, Value(true)) << name;
  }
  for (const char* const name : {"Version", "src", "parentNode", "", "toString"}) {
    EXPECT_EQ(page_->Has(name).value, Value(false)) << name;
  }
  EXPECT_EQ(page_->Get("onmessage").value, Value(Undefined{}));
}

TEST_F(Scripting, RefusesWithFixedTexts) {
  EXPECT_EQ(Read(std::string("other")), "unknown property other");
  EXPECT_EQ(Read(int32_t{1}), std::nullopt);
  EXPECT_EQ(Write(std::string("version"), 1), "cannot set property version");
  EXPECT_EQ(Write(std::string("other"), 1), "cannot set property other");
  EXPECT_EQ(Write(Null{}, 1), "property name is not a string");
  EXPECT_EQ(page_->Set("onmessage", 5).exception, "Passed unexpected type for onmessasge_callback");
  EXPECT_EQ(page_->Set("onerror", std::string("x")).exception,
            "Passed unexpected type for onerror_callback");
  EXPECT_EQ(CallMethod(2.5, {}), "method name is not a string");
  EXPECT_EQ(CallMethod(std::string("other"), {}), "Unknown method other");
  EXPECT_EQ(page_->Call("send", {}).exception, "Invalid argument count for method send");
  EXPECT_EQ(page_->Call("send", {Value("a"), Value("b")}).exception,
            "Invalid argument count for method send");
  EXPECT_EQ(page_->Call("send", {Value(3)}).exception, "Invalid argument type for method send");
  EXPECT_EQ(page_->Send("[\"mpbp-request-permission-result\",0]").exception,
            "Method call not allowed");
  EXPECT_EQ(page_->Send("[\"mpbp\\u002drequest-permission-result\",0]").exception,
            "Method call not allowed");
  EXPECT_EQ(page_->Send("too early").exception, "Send returned false");
  host::Thrown thrown;
  page_->Element().get()->RemoveProperty(std::string("version"), thrown);
  EXPECT_EQ(thrown, "Property does does not exist to be removed in ScriptableObject");
  thrown.reset();
  page_->Element().get()->Construct({}, thrown);
  EXPECT_EQ(thrown, "Construct method does not exist in ScriptableObject");
  EXPECT_THAT(Log(), testing::HasSubstr("Call: Send returned false\n"));
}

TEST_F(Scripting, KeepsTheCallbacksItIsGiven) {
  const Value function = host::MakeFunction([](const host::Values&) { return host::Result{}; });
  EXPECT_EQ(page_->Set("onerror", function).exception, std::nullopt);
  EXPECT_EQ(page_->Get("onerror").value, function);
  EXPECT_EQ(page_->Set("onerror", 5).exception, "Passed unexpected type for onerror_callback");
  EXPECT_EQ(page_->Get("onerror").value, function);
  EXPECT_EQ(page_->Set("onerror", Null{}).exception, std::nullopt);
  EXPECT_EQ(page_->Get("onerror").value, Value(Null{}));
}

TEST_F(Scripting, AnObjectThatOutlivesItsInstanceIsHarmless) {
  const host::ObjectRef object = page_->Element();
  page_->DestroyInstance();
  host::Thrown thrown;
  EXPECT_FALSE(object.get()->HasProperty(std::string("version"), thrown));
  object.get()->GetProperty(std::string("version"), thrown);
  EXPECT_EQ(thrown, "no client channel");
  thrown.reset();
  object.get()->Call(std::string("send"), {Value("x")}, thrown);
  EXPECT_EQ(thrown, "no client channel");
}

}  // namespace
}  // namespace mpbp::test
