#include <map>

#include "plugin/pluginutils.h"
#include "tests/channel/channel_fixture.h"
#include "tests/support/child_process.h"

namespace mpbp {

// What a channel's socket does to it, without one that does.
class ClientChannelTestPeer {
 public:
  static MessageSocket* Socket(ClientChannel& channel) { return channel.socket_.get(); }
  static void Force(ClientChannel& channel, ChannelState state, bool restart_tried) {
    channel.SetState(state, "test");
    channel.restart_tried_ = restart_tried;
  }
  static void Connected(ClientChannel& channel, MessageSocket* socket) {
    channel.OnSocketConnected(socket);
  }
  static void Authorized(ClientChannel& channel, MessageSocket* socket) {
    channel.OnSocketAuthorized(socket);
  }
  static void Text(ClientChannel& channel, MessageSocket* socket, const std::string& text) {
    channel.OnSocketMessage(socket, text);
  }
};

}  // namespace mpbp

namespace mpbp::test {
namespace {

using testing::ElementsAre;
using Lifecycle = ChannelTest;

TEST_F(Lifecycle, AnswersTheRunningEngineAndDeliversWhatWasSentBefore) {
  StartEngine();
  ASSERT_TRUE(Start() && channel_->Send("one"));
  page_.on_text = [&](const std::string& text) {
    // Connected and not yet authorized: what is sent now still comes after what is queued.
    EXPECT_TRUE(text != Step(3) || channel_->Send("two"));
  };
  ASSERT_TRUE(RunUntilText(kReadyText));
  EXPECT_THAT(page_.texts, ElementsAre(Step(0), Step(1), Step(3), kReadyText));
  EXPECT_TRUE(channel_->Send("three"));
  ASSERT_TRUE(PumpUntil([&] { return engine_->received.size() == 3; }));
  EXPECT_THAT(engine_->received, ElementsAre("one", "two", "three"));
  EXPECT_EQ(engine_->host_description(), R"({"url":"https://www.murmel.example/a?b"})");
  EXPECT_TRUE(TimerAsked(5000, TestChannel::kMsgOnlineCheck));
}

TEST_F(Lifecycle, LaunchesAnEngineAndPollsForAPortFileThatCanBeUsed) {
  ASSERT_TRUE(
      WritePortFile(GetPortFilePath(kPluginPortFile).pathname(), 70000, "0123456789abcdef"));
  ASSERT_TRUE(Start());
  EXPECT_THAT(page_.texts, ElementsAre(Step(0), Step(1, EINVAL), Step(2)));
  EXPECT_TRUE(TimerAsked(1000, TestChannel::kMsgConnect));
  ASSERT_TRUE(RunUntilText(Step(1, EINVAL), 2));
  ASSERT_TRUE(DeletePortFile(GetPortFilePath(kPluginPortFile).pathname()));
  ASSERT_TRUE(RunUntilText(Step(0, -1), 2));
  EXPECT_EQ(channel_->launches, 1);
  StartEngine();
  EXPECT_TRUE(RunUntilText(kReadyText));
}

TEST_F(Lifecycle, AnEngineThatWritesNoPortFileForTenSecondsIsToldWhilePolling) {
  app_data_.WriteOptions("install_dir=" + app_data_.dir().path() + "\n");
  channel_->launch = [](int* error) { return LaunchEngine(error); };
  const CapturedLog log;
  ASSERT_TRUE(Start());
  const auto launched = std::chrono::steady_clock::now();
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("no port file that can be used in "); }));
  EXPECT_GE(std::chrono::steady_clock::now() - launched, std::chrono::seconds(9));
}

TEST_F(Lifecycle, RefusesToStartWithoutASocketTwiceOrWithoutAnEngine) {
  CapturedLog log;
  EXPECT_EQ(channel_->Start(nullptr), LinkAttempt::FAILED);
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

TEST_F(Lifecycle, AStalePortFileLeadsToOneRestartAndThenToReconnects) {
  StartEngine();
  const std::string path = GetPortFilePath(kPluginPortFile).pathname();
  const std::string content = ReadFile(path);
  engine_.reset();  // its port is free again
  WriteFile(path, content);
  const CapturedLog log;
  ASSERT_TRUE(Start());
  ASSERT_TRUE(RunUntilText(Step(4, ECONNREFUSED), 3));
  EXPECT_EQ(channel_->launches, 1);
  EXPECT_EQ(log.Count("Stale port file; attempting to restart quern."), 1);
  EXPECT_GE(log.Count("but already tried to restart quern. Attempting to reconnect."), 1);
  EXPECT_EQ(CountTexts(kDeadText), 0u);
}

// Every state with every event, as the table has them.
class Transitions : public ChannelTest {
 protected:
  using Peer = ClientChannelTestPeer;
  struct Outcome {
    ChannelState next;
    std::vector<std::string> told;
    std::vector<std::pair<int32_t, uint32_t>> timers;
  };

  // A channel that runs in the state, with what brought it there forgotten.
  void BringInto(ChannelState state, bool restart_tried) {
    if (channel_->IsRunning()) channel_->Stop();
    ASSERT_TRUE(Start());
    Peer::Force(*channel_, state, restart_tried);
    page_.texts.clear();
    channel_->timers.clear();
  }
  // Raises the event; what must come of it, by the rules behind the table.
  Outcome Raise(ChannelState state, ChannelEvent event, bool restart_tried) {
    using enum ChannelState;
    MessageSocket* const socket = Peer::Socket(*channel_);
    switch (event) {
      case ChannelEvent::SOCKET_CONNECTED:
        Peer::Connected(*channel_, socket);
        return {CONNECTED, {Step(3)}, {{5000, TestChannel::kMsgOnlineCheck}}};
      case ChannelEvent::SOCKET_AUTHORIZED:
        Peer::Authorized(*channel_, socket);
        return {AUTHORIZED, {kReadyText}, {}};
      case ChannelEvent::ENGINE_SPOKE:
        Peer::Text(*channel_, socket, "[\"qw\"]");
        return {state == AUTHORIZED ? READY : state, {"[\"qw\"]"}, {}};
      case ChannelEvent::STOPPED:
        channel_->Stop();
        return {NOT_CONNECTED, {}, {}};
      case ChannelEvent::SOCKET_CLOSED:
        channel_->OnSocketClosed(socket, 104);
    }
    Outcome closed{NOT_CONNECTED, {Step(4, 104)}, {}};
    if (state >= AUTHORIZED) closed.told.push_back(kDeadText);
    const bool again = state == NOT_CONNECTED && restart_tried;
    if (again) closed.timers = {{1000, TestChannel::kMsgConnect}};
    if (!again && (state == NOT_CONNECTED || state == READY)) {
      closed.timers = {{1000, TestChannel::kMsgRestart}};
    }
    return closed;
  }
};

TEST_F(Transitions, AreThoseOfTheTable) {
  const std::map<ChannelState, const char*> told_of_the_end = {
      {ChannelState::NOT_CONNECTED, "Connection to MurmelParlPlugin failed, reason=104"},
      {ChannelState::CONNECTED, "Connection lost while waiting for authorization reason=104"},
      {ChannelState::AUTHORIZED, "lost while responding to getVersion.  Give up.  reason=104"},
      {ChannelState::READY, "Possible quern crash; attempting to restart quern."}};
  for (const ChannelTransition& row : kChannelTransitions) {
    for (const bool restart_tried : {false, true}) {
      SCOPED_TRACE(testing::Message() << "state " << ToNumber(row.state) << " event "
                                      << static_cast<int>(row.event) << " " << restart_tried);
      BringInto(row.state, restart_tried);
      const CapturedLog log;
      const Outcome outcome = Raise(row.state, row.event, restart_tried);
      EXPECT_EQ(channel_->state(), outcome.next);
      EXPECT_EQ(page_.texts, outcome.told);
      EXPECT_EQ(channel_->timers, outcome.timers);
      const bool closed = row.event == ChannelEvent::SOCKET_CLOSED;
      EXPECT_EQ(log.Contains("No more retries remaining."), closed && outcome.timers.empty());
      EXPECT_TRUE(!closed || log.Contains(told_of_the_end.at(row.state))) << log.text();
    }
  }
}

TEST_F(Lifecycle, AnEngineThatNeverAnswersTheHandshakeIsRestartedOnceAndThenGivenUp) {
  CapturedLog log;
  channel_->holds_checks = false;
  StartEngine(true);
  ASSERT_TRUE(Start());
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("Not authorized; attempting"); }));
  EXPECT_TRUE(channel_->Send("for the next link"));
  ASSERT_TRUE(RunUntilText(kDeadText));
  EXPECT_FALSE(channel_->Send("for none"));
  EXPECT_EQ(channel_->launches, 1);
  EXPECT_EQ(engine_->connections, 2);
  for (const char* const line :
       {"HandleOnlineCheck: Starting check", "Not authorized; attempting to restart quern",
        "Not authorized; restart already tried, giving up"}) {
    EXPECT_TRUE(log.Contains(line)) << line;
  }
  const size_t timers = channel_->timers.size();
  RunFor(6000 / kTimeScale);
  EXPECT_EQ(channel_->timers.size(), timers) << "something goes on after giving up";
}

TEST_F(Lifecycle, WhatWaitsForTheEngineHasABound) {
  const std::string text(size_t{51} << 20, 'x');
  StartEngine(true);
  ASSERT_TRUE(Start());
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(channel_->Send(text));
  EXPECT_FALSE(channel_->Send(text) || channel_->Send(std::string(size_t{1} << 20, 'x')));
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
  ASSERT_TRUE(PumpUntil([&] { return channel_->Send(text); }, 60'000));
}

TEST_F(Lifecycle, OnlyTheLastArmedOnlineCheckActsAndAnotherSocketsEventsAreIgnored) {
  const CapturedLog log;
  ConnectToEngine();
  PluginMessageSocket other;
  channel_->OnSocketClosed(&other, 5);
  EXPECT_TRUE(log.Contains(": Not our socket!"));
  EXPECT_EQ(channel_->state(), ChannelState::READY);
  engine_->DropLink();
  ASSERT_TRUE(RunUntilText(kReadyText, 2));
  RunTimer(TestChannel::kMsgOnlineCheck);
  EXPECT_TRUE(log.Contains("More checks pending, current check ignored"));
  EXPECT_FALSE(log.Contains("OK; current state: "));
  RunTimer(TestChannel::kMsgOnlineCheck);
  EXPECT_TRUE(log.Contains("OK; current state: "));
}

TEST_F(Lifecycle, AChannelThatIsStartedAgainHasItsWatchdogAndNoOldTimers) {
  CapturedLog log;
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
    // Stopped, it does nothing when they come.
    for (const uint32_t id :
         {TestChannel::kMsgConnect, TestChannel::kMsgRestart, TestChannel::kMsgOnlineCheck}) {
      RunTimer(id);
    }
    EXPECT_TRUE(log.Contains("Channel not running; aborting check"));
    EXPECT_TRUE(channel_->launches == 0 && page_.texts.empty());
    engine_.reset();
    StartEngine(true);
    ASSERT_TRUE(Start());
    ASSERT_TRUE(RunUntilText(Step(3)));
    RunFor(1500 / kTimeScale);
    EXPECT_EQ(channel_->launches, 0) << "the restart was not for this run";
    RunTimer(TestChannel::kMsgOnlineCheck);
    // That a restart was tried still holds, unless engines were killed meanwhile.
    EXPECT_EQ(CountTexts(kDeadText), kill ? 0u : 1u);
    EXPECT_TRUE(PumpUntil([&] { return channel_->launches == (kill ? 1 : 0); }));
    channel_->Stop();
  }
}

TEST(BrowserThreadTest, WrapsTheThreadForItsFirstChannelAndUnwrapsItAfterTheLast) {
  ASSERT_EQ(Thread::Current(), nullptr);
  const auto first = BrowserThread::Acquire();
  EXPECT_EQ(first, BrowserThread::Acquire());
  for (int left = 2; left > 0; --left, first->Release()) {
    EXPECT_EQ(Thread::Current(), first->thread());
  }
  EXPECT_EQ(Thread::Current(), nullptr);
}

}  // namespace
}  // namespace mpbp::test
