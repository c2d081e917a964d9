// What tests of the link share: a listening end, a connecting end, a peer that sends raw frames,
// and a record of what a message socket raises.
#ifndef MPBP_TESTS_LINK_LINKTEST_H_
#define MPBP_TESTS_LINK_LINKTEST_H_

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pluginmessagesocket.h"
#include "portfileutils.h"
#include "tests/base/looptest.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace mpbp::test {

// Writes down what a message socket raises, and does what the test says about it. The events are
// "port file", "connected", "authorized", "message", "closed".
class LinkWatcher : public SlotOwner, public EventRecord {
 public:
  explicit LinkWatcher(MessageSocket* socket) {
    socket->SignalReadPortFile.Connect(this, &LinkWatcher::OnReadPortFile);
    socket->SignalConnected.Connect(this, &LinkWatcher::OnConnected);
    socket->SignalAuthorized.Connect(this, &LinkWatcher::OnAuthorized);
    socket->SignalMessage.Connect(this, &LinkWatcher::OnMessage);
    socket->SignalClosed.Connect(this, &LinkWatcher::OnClosed);
  }

  std::vector<std::string> texts;
  int close_error = -1;

 private:
  void OnReadPortFile(MessageSocket*, bool) { Note("port file"); }
  void OnConnected(MessageSocket*) { Note("connected"); }
  void OnAuthorized(MessageSocket*) { Note("authorized"); }
  void OnMessage(MessageSocket*, const std::string& text) {
    texts.push_back(text);
    Note("message");
  }
  void OnClosed(MessageSocket*, int error) {
    close_error = error;
    Note("closed");
  }
};

// A peer that keeps to no protocol.
class RawPeer : public SlotOwner {
 public:
  explicit RawPeer(std::unique_ptr<AsyncSocket> connection) : socket(std::move(connection)) {
    socket->SignalReadEvent.Connect(this, &RawPeer::OnRead);
  }
  void SendBytes(const std::string& bytes) {
    EXPECT_EQ(socket->Send(bytes.data(), bytes.size()), static_cast<int>(bytes.size()));
  }
  void SendFrames(const FrameList& sent) {
    for (const auto& [type, data] : sent) SendBytes(Framed(type, data));
  }
  static std::string Framed(uint16_t type, const std::string& data) {
    ByteBuffer buffer;
    WriteFrame(type, data, buffer);
    return {buffer.Data(), buffer.Length()};
  }

  std::unique_ptr<AsyncSocket> socket;
  FrameList frames;

 private:
  void OnRead(AsyncSocket*) {
    char bytes[4096];
    const int count = socket->Recv(bytes, sizeof(bytes));
    if (count > 0) buffer_.WriteBytes({bytes, static_cast<size_t>(count)});
    ReadFrames(buffer_, frames);
  }

  ByteBuffer buffer_;
};

class LinkTest : public LoopTest, public SlotOwner {
 protected:
  LinkTest() { MakeEnds(); }
  ~LinkTest() override { DropEnds(); }

  void DropEnds() {
    accepted_.clear();
    client_.reset();
    listener_.reset();
  }
  void MakeEnds() {
    DropEnds();
    listener_ = std::make_unique<PluginMessageSocket>();
    listener_->set_port_file_path(path_);
    listener_->SignalAccepted.Connect(this, &LinkTest::OnAccepted);
    client_ = std::make_unique<PluginMessageSocket>();
    client_->set_port_file_path(path_);
  }
  // Both ends, authorized.
  void Link() {
    if (client_->host_description().empty()) client_->set_host_description("client");
    ASSERT_TRUE(listener_->Listen());
    ASSERT_TRUE(client_->Connect(nullptr));
    // To the last byte of the handshake: an end that closes with bytes unread resets the other.
    ASSERT_TRUE(PumpUntil([this] {
      return client_->authorized() && accepted_.size() == 1 &&
             accepted_[0]->host_description() == client_->host_description();
    }));
  }
  // A raw connection to the listener.
  std::unique_ptr<RawPeer> ConnectRaw() {
    auto socket = server()->CreateAsyncSocket(SOCK_STREAM);
    EXPECT_EQ(socket->Connect(SocketAddress::Loopback(static_cast<uint16_t>(listener_->port()))),
              0);
    auto peer = std::make_unique<RawPeer>(std::move(socket));
    const size_t wanted = accepted_.size() + 1;
    EXPECT_TRUE(PumpUntil([&] {
      return accepted_.size() == wanted && peer->socket->GetState() == SOCKET_CONNECTED;
    }));
    return peer;
  }
  // The client's connection to a raw listener whose port file holds `cookie`.
  std::unique_ptr<RawPeer> AcceptRaw(const std::string& cookie) {
    const auto listening = server()->CreateAsyncSocket(SOCK_STREAM);
    EXPECT_EQ(listening->Bind(SocketAddress::Loopback(0)), 0);
    EXPECT_EQ(listening->Listen(5), 0);
    EXPECT_TRUE(WritePortFile(path_, listening->GetLocalAddress().port(), cookie));
    EXPECT_TRUE(client_->Connect(nullptr));
    std::unique_ptr<RawPeer> peer;
    EXPECT_TRUE(PumpUntil([&] {
      auto connection = peer ? nullptr : listening->Accept(nullptr);
      if (connection) peer = std::make_unique<RawPeer>(std::move(connection));
      return peer && client_->state() == MessageSocket::STATE_CONNECTED;
    }));
    return peer;
  }

  TempDir dir_;
  const std::string path_ = dir_ / "data/port";
  std::unique_ptr<PluginMessageSocket> listener_;
  std::unique_ptr<PluginMessageSocket> client_;
  std::vector<std::unique_ptr<MessageSocket>> accepted_;
  // Of the connection accepted last, from its first event on.
  std::unique_ptr<LinkWatcher> at_accepted_;
  std::function<void(const std::string& event)> accepted_then_;
  std::function<void()> on_accept_;

 private:
  void OnAccepted(MessageSocket*, std::unique_ptr<MessageSocket>& socket) {
    accepted_.push_back(std::move(socket));
    at_accepted_ = std::make_unique<LinkWatcher>(accepted_.back().get());
    at_accepted_->then = accepted_then_;
    if (on_accept_) on_accept_();
  }
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_LINK_LINKTEST_H_
