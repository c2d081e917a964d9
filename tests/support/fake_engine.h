// An engine of the test's own at the other end of the link.
#ifndef MPBP_TESTS_SUPPORT_FAKE_ENGINE_H_
#define MPBP_TESTS_SUPPORT_FAKE_ENGINE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/signal.h"
#include "engine/enginesocket.h"
#include "portfileutils.h"

namespace mpbp::test {

// The engine's end: a real server socket, which can be told to keep silent in the handshake.
class FakeEngine : public SlotOwner {
 public:
  explicit FakeEngine(bool mute = false)
      : listener_(mute ? engine::Mode::kMuteHandshake : engine::Mode::kNormal) {
    listener_.set_port_file_path(GetPortFilePath(kPluginPortFile).pathname());
    listener_.SignalAccepted.Connect(this, &FakeEngine::OnAccepted);
    EXPECT_TRUE(listener_.Listen());
  }

  void Send(const std::string& text) { EXPECT_TRUE(client_->Send(text)); }
  void DropLink() { client_->Close(); }
  bool has_client() const { return client_ != nullptr; }
  const std::string& host_description() const { return client_->host_description(); }

  std::vector<std::string> received;
  int connections = 0;

 private:
  void OnAccepted(MessageSocket*, std::unique_ptr<MessageSocket>& accepted) {
    ++connections;
    client_ = std::move(accepted);
    client_->SignalMessage.Connect(this, &FakeEngine::OnMessage);
  }
  void OnMessage(MessageSocket*, const std::string& text) { received.push_back(text); }

  engine::EngineSocket listener_;
  std::unique_ptr<MessageSocket> client_;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_FAKE_ENGINE_H_
