// The page acts from inside its own callback, at every text it can get. Whatever it does, nothing
// that is gone may be touched: the sanitizers look on.
#include "tests/channel/channel_fixture.h"

namespace mpbp::test {
namespace {

enum class Act { KILL, STOP, DESTROY, RESTART, DETACH, KILL_AND_DESTROY };

struct Reentrance : ChannelTest, testing::WithParamInterface<std::tuple<Act, int>> {
  void Do(Act act) {
    switch (act) {
      case Act::KILL:
        EXPECT_TRUE(channel_->Send("[\"kill\",true]"));
        break;
      case Act::STOP:
        if (channel_->IsRunning()) channel_->Stop();
        break;
      case Act::DESTROY:
        Destroy();
        break;
      case Act::RESTART:
        if (channel_->IsRunning()) channel_->Stop();
        Start();
        break;
      case Act::DETACH:
        channel_->Detach();
        break;
      case Act::KILL_AND_DESTROY:
        EXPECT_TRUE(channel_->Send("[\"kill\",true]"));
        Destroy();
        break;
    }
  }

  void Destroy() {
    if (!channel_) return;
    if (channel_->IsRunning()) channel_->Stop();
    channel_->Detach();
    channel_.reset();
  }
};

TEST_P(Reentrance, ThePageMayActInsideAnyText) {
  const auto [act, at] = GetParam();
  int seen = 0;
  bool acted = false;
  page_.on_text = [&, what = act, when = at](const std::string&) {
    if (seen++ != when || acted || !channel_) return;
    acted = true;
    Do(what);
  };
  // No engine, then one that dies after it spoke, then one that dies before: every text there is.
  Start();
  StartEngine();
  RunUntil([&] { return acted || CountTexts(kReadyText) == 1; });
  if (!acted) engine_->Send("[\"qw\"]");
  if (!acted) engine_->Send("[\"text\"]");
  RunUntil([&] { return acted || CountTexts("[\"text\"]") == 1; });
  if (!acted) engine_.reset();
  RunUntil([&] { return acted || CountTexts(kDeadText) == 1; });
  if (!engine_) StartEngine();
  RunUntil([&] { return acted || CountTexts(kReadyText) == 2; });
  if (!acted) engine_->DropLink();
  RunUntil([&] { return acted || CountTexts(kDeadText) == 2; });
  EXPECT_TRUE(acted) << "there were " << page_.texts.size() << " texts";
  RunFor(2500 / kTimeScale);
  if (act == Act::RESTART) {
    EXPECT_TRUE(channel_->IsRunning());
  } else if (channel_ && act != Act::DETACH) {
    EXPECT_FALSE(channel_->IsRunning());
  }
}

std::string Name(const testing::TestParamInfo<std::tuple<Act, int>>& info) {
  static const char* const kNames[] = {"Kill",    "Stop",   "Destroy",
                                       "Restart", "Detach", "KillAndDestroy"};
  return std::string(kNames[static_cast<int>(std::get<0>(info.param))]) + "At" +
         std::to_string(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Acts, Reentrance,
                         testing::Combine(testing::Values(Act::KILL, Act::STOP, Act::DESTROY,
                                                          Act::RESTART, Act::DETACH,
                                                          Act::KILL_AND_DESTROY),
                                          testing::Range(0, 13)),
                         Name);

TEST_F(ChannelTest, ANestedLoopOfThePageDoesNotServeTheThreadUnderneath) {
  struct Handler : MessageHandler {
    void OnMessage(Message*) override { ++calls; }
    int calls = 0;
  } handler;
  // In every text of Start, of the handshake and of the engine.
  page_.on_text = [&](const std::string&) {
    handler.calls = 0;
    thread_->Post(&handler);
    channel_->browser_thread()->Pump();
    EXPECT_EQ(handler.calls, 0);
  };
  StartEngine();
  ASSERT_TRUE(Start());
  const uint32_t end = TimeAfter(kDeadlineMs);
  const auto pump_until = [&](const std::string& text) {
    while (CountTexts(text) == 0 && TimeIsLater(Time(), end)) channel_->browser_thread()->Pump();
  };
  pump_until(kReadyText);
  ASSERT_TRUE(engine_->has_client());
  engine_->Send("[\"last\"]");
  pump_until("[\"last\"]");
  EXPECT_THAT(page_.texts,
              testing::ElementsAre(Step(0), Step(1), Step(3), kReadyText, "[\"last\"]"));
  channel_->browser_thread()->Pump();
  EXPECT_EQ(handler.calls, 1);
}

}  // namespace
}  // namespace mpbp::test
