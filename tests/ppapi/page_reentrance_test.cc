// Pages that do the worst from inside their own callback, through the module's entry points.
#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

enum class Act { REMOVE, KILL, REPLACE, CLEAR, SEND, SHUT_OUT };

constexpr const char* kActNames[] = {"Remove", "Kill", "Replace", "Clear", "Send", "ShutOut"};

class PageReentrance : public FakeEngineTest,
                       public testing::WithParamInterface<std::tuple<Act, int>> {
 protected:
  void Do(Act act) {
    switch (act) {
      case Act::REMOVE:
        page_->DestroyInstance();
        break;
      case Act::KILL:
        EXPECT_EQ(page_->Send("[\"kill\",true]").exception, std::nullopt);
        break;
      case Act::REPLACE:
        EXPECT_EQ(Listen(), std::nullopt);
        break;
      case Act::CLEAR:
        EXPECT_EQ(page_->ClearOnMessage().exception, std::nullopt);
        break;
      case Act::SEND:
        page_->Send("[\"sent from inside\"]");
        break;
      case Act::SHUT_OUT:
        EXPECT_EQ(page_->Send("[\"kill\",true]").exception, std::nullopt);
        page_->DestroyInstance();
        break;
    }
  }
};

TEST_P(PageReentrance, NothingThatIsGoneIsTouched) {
  const Act act = std::get<0>(GetParam());
  const int at = std::get<1>(GetParam());
  int seen = 0;
  on_text_ = [&](const std::string&) {
    if (seen++ == at) Do(act);
  };
  CreatePage();
  Listen();
  RunUntil([&] { return seen > at || CountTexts(kReady) > 0; });
  if (seen <= at) engine_->Send("[\"qw\",1]");
  RunUntil([&] { return seen > at || CountTexts("[\"qw\",1]") > 0; });
  if (seen <= at) engine_->DropLink();
  EXPECT_TRUE(RunUntil([&] { return seen > at; }));
  host_.RunFor(150);
}

INSTANTIATE_TEST_SUITE_P(Acts, PageReentrance,
                         testing::Combine(testing::Values(Act::REMOVE, Act::KILL, Act::REPLACE,
                                                          Act::CLEAR, Act::SEND, Act::SHUT_OUT),
                                          testing::Range(0, 7)),
                         [](const auto& param) {
                           return std::string(
                                      kActNames[static_cast<int>(std::get<0>(param.param))]) +
                                  "At" + std::to_string(std::get<1>(param.param));
                         });

TEST_F(FakeEngineTest, WhatComesAfterTheElementWasRemovedIsNotDelivered) {
  ConnectPage();
  on_text_ = [this](const std::string& text) {
    if (text == "[\"last\"]") page_->DestroyInstance();
  };
  engine_->Send("[\"last\"]");
  engine_->Send("[\"too late\"]");
  ASSERT_TRUE(RunUntilText("[\"last\"]"));
  host_.RunFor(250);
  EXPECT_EQ(texts_.back(), "[\"last\"]");
}

TEST_F(FakeEngineTest, ThePageThatRunsALoopOfItsOwnInsideACallbackIsNotServedUnderneath) {
  ConnectPage();
  const auto other = host_.CreatePage(kPageUrl);
  std::vector<std::string> other_texts;
  on_text_ = [&](const std::string&) {
    other->SetOnMessage([&](const std::string& text) { other_texts.push_back(text); });
    host_.RunFor(300);
    EXPECT_EQ(other_texts.size(), 2u);  // it has begun to connect
  };
  engine_->Send("[\"first\"]");
  EXPECT_TRUE(RunUntil([&] { return !other_texts.empty() && other_texts.back() == kReady; }));
}

TEST_F(FakeEngineTest, EveryKindOfTextReachesThePageWholeAndUnchanged) {
  ConnectPage();
  const std::string all = std::string("\0 ascii \x7f", 9) +
                          "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 \xef\xbf\xbd \xed\x9f\xbf";
  const std::string large(200'000, 'x');
  engine_->Send(all);
  engine_->Send(large);
  EXPECT_TRUE(RunUntilText(all));
  EXPECT_TRUE(RunUntilText(large));
  engine_->Send("broken \xff\xc3 \xed\xa0\x80 \xf0\x9f\x98 end");
  EXPECT_TRUE(
      RunUntilText("broken \xef\xbf\xbd\xef\xbf\xbd "
                   "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd \xef\xbf\xbd end"));
  EXPECT_EQ(page_->Send(all).exception, std::nullopt);
  EXPECT_EQ(page_->Send(large).exception, std::nullopt);
  ASSERT_TRUE(RunUntil([&] { return engine_->received.size() == 2; }));
  EXPECT_EQ(engine_->received[0], all);
  EXPECT_EQ(engine_->received[1], large);
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
