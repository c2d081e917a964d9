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
  // Past the questions that a browser asks first, so that every name reaches the module.
  using Act = std::function<void(host::ScriptObject&, host::Thrown&)>;
  const auto set = [](const Value& name, const Value& value) -> Act {
    return [=](auto& object, auto& thrown) { object.SetProperty(name, value, thrown); };
  };
  const auto call = [](const Value& name, const host::Values& arguments) -> Act {
    return [=](auto& object, auto& thrown) { object.Call(name, arguments, thrown); };
  };
  const std::pair<Act, std::string> cases[] = {
      {[](auto& object, auto& thrown) { object.GetProperty("other", thrown); },
       "unknown property other"},
      {[](auto& object, auto& thrown) { object.GetProperty(1, thrown); }, "(nothing)"},
      {set("version", 1), "cannot set property version"},
      {set("other", 1), "cannot set property other"},
      {set(Null{}, 1), "property name is not a string"},
      {set("onmessage", 5), "Passed unexpected type for onmessasge_callback"},
      {set("onerror", "x"), "Passed unexpected type for onerror_callback"},
      {call(2.5, {}), "method name is not a string"},
      {call("other", {}), "Unknown method other"},
      {call("send", {}), "Invalid argument count for method send"},
      {call("send", {"a", "b"}), "Invalid argument count for method send"},
      {call("send", {3}), "Invalid argument type for method send"},
      {call("send", {"[\"mpbp-request-permission-result\",0]"}), "Method call not allowed"},
      {call("send", {"[\"mpbp\\u002drequest-permission-result\",0]"}), "Method call not allowed"},
      {call("send", {"too early"}), "Send returned false"},
      {[](auto& object, auto& thrown) { object.RemoveProperty("version", thrown); },
       "Property does does not exist to be removed in ScriptableObject"},
      {[](auto& object, auto& thrown) { object.Construct({}, thrown); },
       "Construct method does not exist in ScriptableObject"}};
  for (const auto& [act, text] : cases) {
    host::Thrown thrown;
    act(*page_->Element().get(), thrown);
    EXPECT_EQ(thrown.value_or("(nothing)"), text);
  }
  EXPECT_THAT(Log(), testing::HasSubstr("Call: Send returned false\n"));
}

TEST_F(Scripting, KeepsTheCallbacksItIsGiven) {
  const Value function = host::MakeFunction([](const host::Values&) { return host::Result{}; });
  EXPECT_FALSE(page_->Set("onerror", function).exception);
  EXPECT_TRUE(page_->Set("onerror", 5).exception);
  EXPECT_EQ(page_->Get("onerror").value, function);
  EXPECT_FALSE(page_->Set("onerror", Null{}).exception);
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
