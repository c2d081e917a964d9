// A channel with the page above it and an engine of the test's own at the other end of the link,
// all on one thread; time runs fifty times as fast.
#ifndef MPBP_TESTS_CHANNEL_CHANNEL_FIXTURE_H_
#define MPBP_TESTS_CHANNEL_CHANNEL_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/logging.h"
#include "base/threadmanager.h"
#include "base/timeutils.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "pluginmessagesocket.h"
#include "tests/base/looptest.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_engine.h"
#include "tests/support/scoped_env.h"

namespace mpbp::test {

constexpr int kTimeScale = 50;

// Time and the launching of engines are the test's. Online checks come when the test runs them:
// those that came by themselves would meet other states on a slow machine.
class TestChannel : public ClientChannel {
 public:
  TestChannel(ClientChannelDelegate* delegate, std::string url)
      : ClientChannel(delegate, std::move(url)) {}

  std::function<bool(int* error)> launch = [](int*) { return true; };
  int launches = 0;
  std::vector<std::pair<int32_t, uint32_t>> timers;  // delay in ms, id; as asked for
  bool holds_checks = true;
  std::shared_ptr<MemoryLog> log_store;

  using ClientChannel::kMsgConnect;
  using ClientChannel::kMsgOnlineCheck;
  using ClientChannel::kMsgRestart;
  using ClientChannel::OnMessage;
  using ClientChannel::OnSocketClosed;

 protected:
  void PostDelayed(int32_t delay_ms, uint32_t id) override {
    timers.emplace_back(delay_ms, id);
    if (holds_checks && id == kMsgOnlineCheck) return;
    ClientChannel::PostDelayed(delay_ms / kTimeScale, id);
  }
  bool LaunchEngineProcess(int* error) override {
    ++launches;
    return launch(error);
  }
  std::shared_ptr<MemoryLog> LogStore() override { return log_store; }
};

// The page's side.
class TestDelegate final : public ClientChannelDelegate {
 public:
  void MessageReceived(const std::string& text) override {
    texts.push_back(text);
    if (on_text) on_text(text);
  }
  bool StartHttpRequest(const HttpRequest& request,
                        std::unique_ptr<HttpResponse>& response) override {
    requests.push_back(request);
    responses.push_back(std::move(response));
    return true;
  }
  bool GetProxyForUrl(const std::string& text, std::string* reply) override {
    *reply = proxy_reply;
    return !proxy_reply.empty() && !text.empty();
  }

  std::vector<std::string> texts;
  std::function<void(const std::string&)> on_text;
  std::vector<HttpRequest> requests;
  std::vector<std::unique_ptr<HttpResponse>> responses;
  std::string proxy_reply;
};

class ChannelTest : public LoopTest {
 protected:
  bool Start() {
    return channel_->Start(std::make_unique<PluginMessageSocket>()) == LinkAttempt::UNDER_WAY;
  }
  void StartEngine(bool mute = false) { engine_ = std::make_unique<FakeEngine>(mute); }

  bool RunUntilText(const std::string& text, size_t count = 1) {
    return PumpUntil([&] { return CountTexts(text) >= count; });
  }
  size_t CountTexts(const std::string& text) const {
    return static_cast<size_t>(std::count(page_.texts.begin(), page_.texts.end(), text));
  }
  bool TimerAsked(int32_t delay_ms, uint32_t id) const {
    return std::find(channel_->timers.begin(), channel_->timers.end(), std::pair(delay_ms, id)) !=
           channel_->timers.end();
  }
  void RunTimer(uint32_t id) {
    Message message;
    message.message_id = id;
    channel_->OnMessage(&message);
  }
  // Up to "f-ready", and beyond it to the state that a "qw" text brings.
  void ConnectToEngine() {
    if (!engine_) StartEngine();
    ASSERT_TRUE(Start());
    ASSERT_TRUE(RunUntilText(kReadyText));
    engine_->Send("[\"qw\",1]");
    ASSERT_TRUE(PumpUntil([this] { return channel_->state() == ChannelState::READY; }));
  }

  ScopedAppData app_data_;
  TestDelegate page_;
  std::unique_ptr<FakeEngine> engine_;
  std::shared_ptr<TestChannel> channel_ =
      std::make_shared<TestChannel>(&page_, "https://www.murmel.example/a?b");
};

inline std::string Step(int step, int error = 0) {
  const std::string error_text = error ? "\"error\":" + std::to_string(error) + "," : "";
  return "[\"f-connect\",{" + error_text + "\"step\":\"" + std::to_string(step) + "\"}]";
}

}  // namespace mpbp::test

#endif  // MPBP_TESTS_CHANNEL_CHANNEL_FIXTURE_H_
