#include <map>

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
  ASSERT_TRUE(PumpUntil([&] { return engine_->received.size() == 3; }));
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

// Every state with every event, as the table has them.
class Transitions : public ChannelTest {
 protected:
  // A channel that runs in the state, with what brought it there forgotten.
  void BringInto(ChannelState state, bool restart_tried) {
    if (channel_->IsRunning()) channel_->Stop();
    ASSERT_TRUE(Start());
    ClientChannelTestPeer::Force(*channel_, state, restart_tried);
    page_.texts.clear();
    channel_->timers.clear();
  }
  void Raise(ChannelEvent event) {
    MessageSocket* const socket = ClientChannelTestPeer::Socket(*channel_);
    switch (event) {
      case ChannelEvent::SOCKET_CONNECTED:
        return ClientChannelTestPeer::Connected(*channel_, socket);
      case ChannelEvent::SOCKET_AUTHORIZED:
        return ClientChannelTestPeer::Authorized(*channel_, socket);
      case ChannelEvent::ENGINE_SPOKE:
        return ClientChannelTestPeer::Text(*channel_, socket, "[\"qw\"]");
      case ChannelEvent::SOCKET_CLOSED:
        return channel_->OnSocketClosed(socket, 104);
      case ChannelEvent::STOPPED:
        return channel_->Stop();
    }
  }
  // The rules behind the table, said in another way.
  static ChannelTransition Expected(ChannelState state, ChannelEvent event) {
    using enum ChannelState;
    const bool knew_the_engine = state >= AUTHORIZED;
    switch (event) {
      case ChannelEvent::SOCKET_CONNECTED:
        return {state, event, CONNECTED, ConnectStep::LINK_UP, nullptr, ChannelSequel::CHECK};
      case ChannelEvent::SOCKET_AUTHORIZED:
        return {state, event, AUTHORIZED, ConnectStep::NO_STEP, kReadyText, ChannelSequel::NOTHING};
      case ChannelEvent::ENGINE_SPOKE:
        return {state,
                event,
                state == AUTHORIZED ? READY : state,
                ConnectStep::NO_STEP,
                nullptr,
                ChannelSequel::NOTHING};
      case ChannelEvent::SOCKET_CLOSED:
        return {state,
                event,
                NOT_CONNECTED,
                ConnectStep::LINK_DOWN,
                knew_the_engine ? kDeadText : nullptr,
                state == NOT_CONNECTED ? ChannelSequel::RECOVER
                : state == READY       ? ChannelSequel::RESTART
                                       : ChannelSequel::GIVE_UP};
      case ChannelEvent::STOPPED:
        break;
    }
    return {state, event, NOT_CONNECTED, ConnectStep::NO_STEP, nullptr, ChannelSequel::NOTHING};
  }
  static std::vector<std::pair<int32_t, uint32_t>> TimersOf(ChannelSequel sequel,
                                                            bool restart_tried) {
    if (sequel == ChannelSequel::CHECK) return {{5000, TestChannel::kMsgOnlineCheck}};
    const bool again = sequel == ChannelSequel::RECOVER && restart_tried;
    if (again) return {{1000, TestChannel::kMsgConnect}};
    if (sequel == ChannelSequel::NOTHING || sequel == ChannelSequel::GIVE_UP) return {};
    return {{1000, TestChannel::kMsgRestart}};
  }
};

TEST_F(Transitions, AreThoseOfTheTable) {
  const std::map<ChannelState, const char*> told_of_the_end = {
      {ChannelState::NOT_CONNECTED, "Connection to MurmelParlPlugin failed, reason=104"},
      {ChannelState::CONNECTED, "Connection lost while waiting for authorization reason=104"},
      {ChannelState::AUTHORIZED, "lost while responding to getVersion.  Give up.  reason=104"},
      {ChannelState::READY, "Possible quern crash; attempting to restart quern."}};
  for (const ChannelTransition& listed : kChannelTransitions) {
    const ChannelTransition row = Expected(listed.state, listed.event);
    for (const bool restart_tried : {false, true}) {
      SCOPED_TRACE(testing::Message() << "state " << ToNumber(row.state) << " event "
                                      << static_cast<int>(row.event) << " " << restart_tried);
      BringInto(row.state, restart_tried);
      CapturedLog log;
      Raise(row.event);
      EXPECT_EQ(channel_->state(), row.next);
      std::vector<std::string> told;
      const bool closed = row.event == ChannelEvent::SOCKET_CLOSED;
      if (row.step != ConnectStep::NO_STEP)
        told.push_back(Step(ToNumber(row.step), closed ? 104 : 0));
      if (row.text) told.push_back(row.text);
      if (row.event == ChannelEvent::ENGINE_SPOKE) told.push_back("[\"qw\"]");
      EXPECT_EQ(page_.texts, told);
      EXPECT_EQ(channel_->timers, TimersOf(row.sequel, restart_tried));
      EXPECT_EQ(log.Contains("No more retries remaining."), row.sequel == ChannelSequel::GIVE_UP);
      if (closed) {
        EXPECT_TRUE(log.Contains(told_of_the_end.at(row.state))) << log.text();
      }
    }
  }
}

TEST_F(Lifecycle, AnEngineThatSpokeIsRestartedEachTimeItDies) {
  ConnectToEngine();
  for (size_t death = 1; death <= 3; ++death) {
    engine_.reset();
    ASSERT_TRUE(RunUntilText(kDeadText, death));
    ASSERT_TRUE(PumpUntil([&] { return channel_->launches == static_cast<int>(death); }));
    StartEngine();
    ASSERT_TRUE(RunUntilText(kReadyText, death + 1));
    engine_->Send("[\"qw\"]");
    ASSERT_TRUE(PumpUntil([&] { return channel_->state() == ChannelState::READY; }));
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
  ASSERT_TRUE(PumpUntil([&] { return channel_->Send(text); }, 60'000));
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
    EXPECT_TRUE(PumpUntil([&] { return channel_->launches == (kill ? 1 : 0); }));
    channel_->Stop();
  }
}

TEST_F(Lifecycle, AnotherSocketsEventsAreIgnored) {
  CapturedLog log;
  ConnectToEngine();
  PluginMessageSocket other;
  channel_->OnSocketClosed(&other, 5);
  EXPECT_TRUE(log.Contains(": Not our socket!"));
  EXPECT_EQ(channel_->state(), ChannelState::READY);
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
