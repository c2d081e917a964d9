// Pages that do the worst from inside their own callback, through the module's entry points.
#include <map>
#include <set>

#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

class PageReentrance : public FakeEngineTest,
                       public testing::WithParamInterface<std::tuple<std::string, int>> {
 protected:
  std::map<std::string, std::function<void()>> acts_ = {
      {"Remove", [this] { page_->DestroyInstance(); }},
      {"Kill", [this] { EXPECT_FALSE(page_->Send("[\"kill\",true]").exception); }},
      {"Replace", [this] { EXPECT_FALSE(Listen()); }},
      {"Clear", [this] { EXPECT_FALSE(page_->ClearOnMessage().exception); }},
      {"Send", [this] { page_->Send("[\"sent from inside\"]"); }},
      {"ShutOut", [this] { acts_.at("Kill")(), acts_.at("Remove")(); }}};
};

TEST_P(PageReentrance, NothingThatIsGoneIsTouched) {
  const auto [act, at] = GetParam();
  const std::set<std::string> ending = {"Remove", "Clear", "ShutOut"};
  int seen = 0;
  on_text_ = [&, what = act, when = at](const std::string&) {
    if (seen++ == when) acts_.at(what)();
  };
  CreatePage();
  Listen();
  const auto acted = [&, when = at] { return seen > when; };
  RunUntil([&] { return acted() || CountTexts(kReady) > 0; });
  for (const char* const text : {"[\"qw\",1]", "[\"qw\",2]"}) {
    if (!acted()) engine_->Send(text);
  }
  RunUntil([&] { return acted() || CountTexts("[\"qw\",2]") > 0; });
  if (!acted()) engine_->DropLink();
  EXPECT_TRUE(RunUntil(acted));
  host_.RunFor(150);
  // The kill of "ShutOut" tells two texts, from inside.
  EXPECT_TRUE(ending.count(act) == 0 || seen == at + (act == "ShutOut" ? 3 : 1)) << seen;
}

const std::string kActs[] = {"Remove", "Kill", "Replace", "Clear", "Send", "ShutOut"};
INSTANTIATE_TEST_SUITE_P(Acts, PageReentrance,
                         testing::Combine(testing::ValuesIn(kActs), testing::Range(0, 8)),
                         [](const auto& each) {
                           return std::get<0>(each.param) + "At" +
                                  std::to_string(std::get<1>(each.param));
                         });

TEST_F(FakeEngineTest, AnotherPageIsNotServedUnderneathOneThatRunsALoopInsideACallback) {
  CreatePage();
  const auto other = host_.CreatePage(kPageUrl);
  std::vector<std::string> other_texts;
  on_text_ = [&](const std::string&) {
    // While the first is still in the call that starts it.
    if (texts_.size() == 2) {
      other->SetOnMessage([&](const std::string& text) { other_texts.push_back(text); });
    }
    const size_t before = other_texts.size();
    host_.RunFor(150);
    EXPECT_EQ(other_texts.size(), before);
  };
  Listen();
  EXPECT_TRUE(RunUntil([&] { return !other_texts.empty() && other_texts.back() == kReady; }));
}

TEST_F(FakeEngineTest, EveryKindOfTextReachesThePageWholeAndUnchanged) {
  ConnectPage();
  const std::string all = std::string("\0 ascii \x7f", 9) +
                          "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 \xef\xbf\xbd \xed\x9f\xbf";
  const std::string large(200'000, 'x');
  engine_->Send(all);
  engine_->Send(large);
  EXPECT_TRUE(RunUntilText(all) && RunUntilText(large));
  engine_->Send("broken \xff\xc3 \xed\xa0\x80 \xf0\x9f\x98 end");
  EXPECT_TRUE(
      RunUntilText("broken \xef\xbf\xbd\xef\xbf\xbd "
                   "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd \xef\xbf\xbd end"));
  for (const std::string& text : {all, large}) EXPECT_FALSE(page_->Send(text).exception);
  ASSERT_TRUE(RunUntil([&] { return engine_->received.size() == 2; }));
  EXPECT_THAT(engine_->received, testing::ElementsAre(all, large));
}

TEST_F(FakeEngineTest, WhatACallbackThrowsIsALineOfTheLogAndTheLinkGoesOn) {
  ConnectPage();
  on_text_ = [&](const std::string& text) {
    if (text == "[\"last\"]") page_->DestroyInstance();
    throw std::runtime_error("Error of " + text + "\n" + std::string(2000, 'x'));
  };
  for (const std::string text : {"[1]", "[2]", "[\"last\"]"}) engine_->Send(text);
  EXPECT_TRUE(RunUntilText("[\"last\"]"));
  for (const std::string text : {"[1]", "[2]", "[\"last\"]"}) {
    EXPECT_THAT(Log(), testing::ContainsRegex("Warning\\(plugin.cc:[0-9]+\\): The page's onmessage "
                                              "threw: Error of \\" +
                                              text + " x{900,1000}\\.\\.\\.\n"));
  }
}

TEST_F(FakeEngineTest, TextsForAPageWithoutACallbackAreDropped) {
  ConnectPage();
  EXPECT_EQ(page_->ClearOnMessage(host::Undefined{}).exception, std::nullopt);
  engine_->Send("[\"lost\"]");
  EXPECT_EQ(page_->Send("[\"still running\"]").exception, std::nullopt);
  ASSERT_TRUE(RunUntil([&] { return engine_->received.size() == 1; }));
  host_.RunFor(250);
  EXPECT_EQ(Listen(), std::nullopt);
  engine_->Send("[\"seen\"]");
  EXPECT_TRUE(RunUntilText("[\"seen\"]"));
  EXPECT_EQ(CountTexts("[\"lost\"]"), 0u);
}

}  // namespace
}  // namespace mpbp::test
