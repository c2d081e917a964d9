#include "tests/channel/channel_fixture.h"
#include "tests/support/child_process.h"

namespace mpbp::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Lifecycle = ChannelTest;

TEST_F(Lifecycle, AnswersTheRunningEngineAndDeliversWhatWasSentBefore) {
  StartEngine();
  ASSERT_TRUE(Start());
  EXPECT_TRUE(channel_->Send("one"));
  page_.on_text = [&](const std::string& text) {
    // Connected and not yet authorized: what is sent now still comes after what is queued.
    if (text == Step(3)) {
      EXPECT_TRUE(channel_->Send("two"));
    }
  };
  ASSERT_TRUE(RunUntilText(kReadyText));
  EXPECT_THAT(page_.texts, ElementsAre(Step(0), Step(1), Step(3), kReadyText));
  EXPECT_TRUE(channel_->Send("three"));
  ASSERT_TRUE(RunUntil([&] { return engine_->received.size() == 3; }));
  EXPECT_THAT(engine_->received, ElementsAre("one", "two", "three"));
  EXPECT_EQ(engine_->host_description(), R"({"url":"https://www.murmel.example/a?b"})");
  EXPECT_TRUE(TimerAsked(5000, TestChannel::kMsgOnlineCheck));
}

TEST_F(Lifecycle, LaunchesAnEngineAndPollsForItsPortFile) {
  ASSERT_TRUE(Start());
  EXPECT_THAT(page_.texts, ElementsAre(Step(0, -1), Step(2)));
  EXPECT_TRUE(TimerAsked(1000, TestChannel::kMsgConnect));
  ASSERT_TRUE(RunUntilText(Step(0, -1), 4));
  EXPECT_EQ(channel_->launches, 1);
  StartEngine();
  EXPECT_TRUE(RunUntilText(kReadyText));
}

TEST_F(Lifecycle, RefusesToStartWithoutASocketTwiceOrWithoutAnEngine) {
  CapturedLog log;
  EXPECT_FALSE(channel_->Start(nullptr));
  EXPECT_TRUE(log.Contains(": Invalid argument: socket"));
  channel_->launch = [](int* error) {
    *error = 13;
    return false;
  };
  EXPECT_FALSE(Start());
  EXPECT_FALSE(channel_->IsRunning());
  EXPECT_THAT(page_.texts, ElementsAre(Step(0, -1), Step(2, 13)));
  EXPECT_FALSE(channel_->Send("x"));
  channel_->Stop();
  EXPECT_TRUE(
      log.Contains("Called ClientChannel::Stop() on a client channel which was not running."));
  channel_->launch = [](int*) { return true; };
  EXPECT_TRUE(Start());
  EXPECT_FALSE(Start());
  EXPECT_TRUE(
      log.Contains("Called ClientChannel::Start() on a client channel which was already running."));
}

TEST_F(Lifecycle, APortOutOfRangeIsReportedAndTheEngineLaunched) {
  ASSERT_TRUE(
      WritePortFile(GetPortFilePath(kPluginPortFile).pathname(), 70000, "0123456789abcdef"));
  ASSERT_TRUE(Start());
  EXPECT_THAT(page_.texts, ElementsAre(Step(0), Step(1, EINVAL), Step(2)));
}

TEST_F(Lifecycle, AStalePortFileLeadsToOneRestartAndThenToReconnects) {
  {
    FakeEngine gone;  // its port is free again, its port file is kept
    const std::string path = GetPortFilePath(kPluginPortFile).pathname();
    const std::string content = ReadFile(path);
    engine_.reset();
    std::filesystem::copy_file(path, path + ".kept");
  }
  const std::string path = GetPortFilePath(kPluginPortFile).pathname();
  std::filesystem::rename(path + ".kept", path);
  CapturedLog log;
  ASSERT_TRUE(Start());
  ASSERT_TRUE(RunUntilText(Step(4, ECONNREFUSED), 3));
  EXPECT_EQ(channel_->launches, 1);
  EXPECT_EQ(log.Count("Stale port file; attempting to restart quern."), 1);
  EXPECT_GE(log.Count("but already tried to restart quern. Attempting to reconnect."), 1);
  EXPECT_EQ(CountTexts(kDeadText), 0u);
}

// What a dropped link leads to, by the state it was in.
struct DropCase {
  int32_t state;
  size_t dead_texts;
  int launches;
  const char* log_line;
};

class DroppedLink : public ChannelTest, public testing::WithParamInterface<DropCase> {};

TEST_P(DroppedLink, LeadsToWhatItsStateSays) {
  CapturedLog log;
  const DropCase& drop = GetParam();
  StartEngine(drop.state == CHANNEL_CONNECTED);
  ASSERT_TRUE(Start());
  ASSERT_TRUE(RunUntil([&] { return channel_->state() == std::min(drop.state, 2); }));
  if (drop.state == CHANNEL_READY) {
    engine_->Send("[\"qw\"]");
    ASSERT_TRUE(RunUntil([&] { return channel_->state() == CHANNEL_READY; }));
  }
  ASSERT_TRUE(RunUntil([&] { return engine_->has_client(); }));
  engine_->DropLink();
  // What the engine had not read yet makes the end a reset.
  ASSERT_TRUE(RunUntil([&] { return CountTexts(Step(4)) + CountTexts(Step(4, ECONNRESET)) == 1; }));
  EXPECT_EQ(CountTexts(kDeadText), drop.dead_texts);
  EXPECT_EQ(TimerAsked(1000, TestChannel::kMsgRestart), drop.launches > 0);
  EXPECT_TRUE(RunUntil([&] { return channel_->launches == drop.launches; }));
  EXPECT_TRUE(log.Contains(drop.log_line)) << log.text();
}

INSTANTIATE_TEST_SUITE_P(
    States, DroppedLink,
    testing::Values(DropCase{CHANNEL_CONNECTED, 0, 0,
                             "Connection lost while waiting for authorization reason="},
                    DropCase{CHANNEL_AUTHORIZED, 1, 0,
                             "lost while responding to getVersion.  Give up.  reason="},
                    DropCase{CHANNEL_READY, 1, 1,
                             "Possible quern crash; attempting to restart quern."}));

TEST_F(Lifecycle, AnEngineThatSpokeIsRestartedEachTimeItDies) {
  ConnectToEngine();
  for (size_t death = 1; death <= 3; ++death) {
    engine_.reset();
    ASSERT_TRUE(RunUntilText(kDeadText, death));
    ASSERT_TRUE(RunUntil([&] { return channel_->launches == static_cast<int>(death); }));
    StartEngine();
    ASSERT_TRUE(RunUntilText(kReadyText, death + 1));
    engine_->Send("[\"qw\"]");
    ASSERT_TRUE(RunUntil([&] { return channel_->state() == CHANNEL_READY; }));
  }
}

TEST_F(Lifecycle, AnEngineThatNeverAnswersTheHandshakeIsRestartedOnceAndThenGivenUp) {
  CapturedLog log;
  channel_->holds_checks = false;
  StartEngine(true);
  ASSERT_TRUE(Start());
  ASSERT_TRUE(RunUntil([&] { return log.Contains("Not authorized; attempting"); }));
  EXPECT_TRUE(channel_->Send("for the next link"));
  ASSERT_TRUE(RunUntilText(kDeadText));
  EXPECT_FALSE(channel_->Send("for none"));
  EXPECT_EQ(channel_->launches, 1);
  EXPECT_EQ(engine_->connections, 2);
  EXPECT_TRUE(log.Contains("HandleOnlineCheck: Starting check"));
  EXPECT_TRUE(log.Contains("Not authorized; attempting to restart quern"));
  EXPECT_TRUE(log.Contains("Not authorized; restart already tried, giving up"));
  const size_t timers = channel_->timers.size();
  RunFor(6000 / kTimeScale);
  EXPECT_EQ(channel_->timers.size(), timers) << "something goes on after giving up";
}

TEST_F(Lifecycle, WhatWaitsForTheEngineHasABound) {
  const std::string text(size_t{51} << 20, 'x');
  StartEngine(true);
  ASSERT_TRUE(Start());
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(channel_->Send(text));
  EXPECT_FALSE(channel_->Send(text));
  EXPECT_FALSE(channel_->Send(std::string(size_t{1} << 20, 'x')));
  EXPECT_TRUE(channel_->Send("x"));
  // Once it has left the queue, what the system has not taken still counts.
  channel_->Stop();
  engine_.reset();
  StartEngine();
  ASSERT_TRUE(Start());
  bool refused = false;
  page_.on_text = [&](const std::string& told) {
    if (told == kReadyText) refused = !channel_->Send(text);
  };
  ASSERT_TRUE(RunUntilText(kReadyText));
  EXPECT_TRUE(refused);
  ASSERT_TRUE(RunUntil([&] { return channel_->Send(text); }, 60'000));
}

TEST_F(Lifecycle, OnlyTheLastArmedOnlineCheckActs) {
  CapturedLog log;
  ConnectToEngine();
  engine_->DropLink();
  ASSERT_TRUE(RunUntilText(kReadyText, 2));
  RunTimer(TestChannel::kMsgOnlineCheck);
  EXPECT_TRUE(log.Contains("More checks pending, current check ignored"));
  EXPECT_FALSE(log.Contains("OK; current state: "));
  RunTimer(TestChannel::kMsgOnlineCheck);
  EXPECT_TRUE(log.Contains("OK; current state: "));
}

TEST_F(Lifecycle, TimersOfAStoppedChannelDoNothing) {
  CapturedLog log;
  ConnectToEngine();
  engine_->DropLink();
  ASSERT_TRUE(RunUntilText(kDeadText));
  channel_->Stop();
  const int launches = channel_->launches;
  const size_t texts = page_.texts.size();
  for (const uint32_t id :
       {TestChannel::kMsgConnect, TestChannel::kMsgRestart, TestChannel::kMsgOnlineCheck}) {
    RunTimer(id);
  }
  EXPECT_TRUE(log.Contains("Channel not running; aborting check"));
  EXPECT_EQ(channel_->launches, launches);
  EXPECT_EQ(page_.texts.size(), texts);
}

TEST_F(Lifecycle, AChannelThatIsStartedAgainHasItsWatchdogAndNoOldTimers) {
  for (const bool kill : {false, true}) {
    SCOPED_TRACE(kill);
    engine_.reset();
    ConnectToEngine();
    page_.texts.clear();
    engine_->DropLink();
    ASSERT_TRUE(RunUntilText(kDeadText));  // a restart and a check are pending
    if (kill) {
      const NamedChild engine_process("MurmelParlPlugin");
      EXPECT_TRUE(channel_->Send("[\"kill\",true]"));
    } else {
      channel_->Stop();
    }
    page_.texts.clear();
    channel_->launches = 0;
    engine_.reset();
    StartEngine(true);
    ASSERT_TRUE(Start());
    ASSERT_TRUE(RunUntilText(Step(3)));
    RunFor(1500 / kTimeScale);
    EXPECT_EQ(channel_->launches, 0) << "the restart was not for this run";
    RunTimer(TestChannel::kMsgOnlineCheck);
    // That a restart was tried still holds, unless engines were killed meanwhile.
    EXPECT_EQ(CountTexts(kDeadText), kill ? 0u : 1u);
    EXPECT_TRUE(RunUntil([&] { return channel_->launches == (kill ? 1 : 0); }));
    channel_->Stop();
  }
}

TEST_F(Lifecycle, AnotherSocketsEventsAreIgnored) {
  CapturedLog log;
  ConnectToEngine();
  PluginMessageSocket other;
  channel_->OnSocketClosed(&other, 5);
  EXPECT_TRUE(log.Contains(": Not our socket!"));
  EXPECT_EQ(channel_->state(), CHANNEL_READY);
}

TEST(BrowserThreadTest, WrapsTheThreadForItsFirstChannelAndUnwrapsItAfterTheLast) {
  ASSERT_EQ(Thread::Current(), nullptr);
  const auto first = BrowserThread::Acquire();
  const auto second = BrowserThread::Acquire();
  EXPECT_EQ(first, second);
  EXPECT_EQ(Thread::Current(), first->thread());
  first->Release();
  EXPECT_EQ(Thread::Current(), first->thread());
  second->Release();
  EXPECT_EQ(Thread::Current(), nullptr);
}

}  // namespace
}  // namespace mpbp::test
