// Both ends of the link over loopback, and each against a peer that does it wrong.
#include "messagesocket.h"

#include <gmock/gmock.h>

#include "tests/link/linktest.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::LinkWatcher;
using test::RawPeer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class MessageSocketTest : public test::LinkTest {};

const std::string kCookie = "0123456789abcdef";

TEST_F(MessageSocketTest, HandshakeAuthorizesBothEndsAndTextsGoBothWays) {
  client_->set_host_description("a page");
  LinkWatcher at_client(client_.get());
  ASSERT_TRUE(listener_->Listen());
  EXPECT_EQ(test::FileMode(path_), 0600);
  EXPECT_FALSE(client_->Send("too early"));
  ASSERT_TRUE(client_->Connect(nullptr));
  EXPECT_FALSE(client_->authorized());
  EXPECT_FALSE(client_->Connect(nullptr));  // already connecting
  ASSERT_TRUE(PumpUntil([&] {
    return at_client.Saw("authorized") && accepted_.size() == 1 &&
           !accepted_[0]->host_description().empty();
  }));
  EXPECT_THAT(at_client.events, ElementsAre("port file", "connected", "authorized"));
  EXPECT_EQ(accepted_[0]->host_description(), "a page");
  EXPECT_EQ(accepted_[0]->cookie(), listener_->cookie());

  LinkWatcher at_server(accepted_[0].get());
  const std::vector<std::string> texts{"first", "", std::string("\0nul\xFF", 5)};
  for (const std::string& text : texts) {
    EXPECT_TRUE(client_->Send(text));
    EXPECT_TRUE(accepted_[0]->Send(text));
  }
  EXPECT_TRUE(
      PumpUntil([&] { return at_client.texts.size() == 3 && at_server.texts.size() == 3; }));
  EXPECT_EQ(at_client.texts, texts);
  EXPECT_EQ(at_server.texts, texts);
}

TEST_F(MessageSocketTest, EveryListenHasAFreshCookieAndCloseRemovesThePortFile) {
  ASSERT_TRUE(listener_->Listen());
  EXPECT_FALSE(listener_->Listen());
  const std::string first = listener_->cookie();
  EXPECT_EQ(first.size(), 16u);
  listener_->Close();
  listener_->Close();
  EXPECT_EQ(test::FileMode(path_), -1);
  ASSERT_TRUE(listener_->Listen());
  EXPECT_NE(listener_->cookie(), first);
  listener_.reset();
  EXPECT_EQ(test::FileMode(path_), -1);
}

TEST_F(MessageSocketTest, WhatIsSentBeforeAuthorizationIsDropped) {
  const CapturedLog log;
  ASSERT_TRUE(listener_->Listen());
  const auto peer = ConnectRaw();
  LinkWatcher at_server(accepted_[0].get());
  peer->SendFrame(MSG_DATA, "early");
  peer->SendFrame(MSG_HOST_DESCRIPTION, "nobody");
  peer->SendFrame(MSG_COOKIE, "");
  peer->SendFrame(MSG_COOKIE, listener_->cookie().substr(1));
  peer->SendFrame(MSG_COOKIE, listener_->cookie() + "x");
  ASSERT_TRUE(PumpUntil([&] { return peer->frames.size() == 3; }));
  const std::pair<uint16_t, std::string> refused(MSG_COOKIE_RESPONSE, "");
  EXPECT_THAT(peer->frames, ElementsAre(refused, refused, refused));
  EXPECT_TRUE(log.Contains(": Unauthorized message received, data=early"));
  EXPECT_TRUE(log.Contains(": Unauthorized host_description message received, data= nobody"));
  EXPECT_THAT(at_server.events, IsEmpty());
  EXPECT_FALSE(accepted_[0]->authorized());
  EXPECT_FALSE(peer->closed);

  // The link is still good for the right cookie, and authorizes once.
  peer->SendFrame(MSG_COOKIE, listener_->cookie());
  peer->SendFrame(MSG_COOKIE, listener_->cookie());
  peer->SendFrame(MSG_DATA, "now");
  ASSERT_TRUE(PumpUntil([&] { return at_server.Saw("message") && peer->frames.size() == 5; }));
  EXPECT_THAT(at_server.events, ElementsAre("authorized", "message"));
  EXPECT_THAT(peer->frames.back(), Pair(MSG_COOKIE_RESPONSE, listener_->cookie()));
}

TEST_F(MessageSocketTest, TheClientIgnoresBadCookieResponsesAndUnknownTypes) {
  const CapturedLog log;
  LinkWatcher at_client(client_.get());
  const auto peer = AcceptRaw(kCookie);
  peer->SendFrame(MSG_DATA, "early");
  peer->SendFrame(MSG_COOKIE_RESPONSE, "");
  peer->SendFrame(MSG_COOKIE_RESPONSE, "fedcba9876543210");
  peer->SendFrame(MSG_BINARY, "bytes");
  peer->SendFrame(0xFFFF, "");
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("type=65535"); }));
  EXPECT_TRUE(log.Contains(": Unknown message received, type=5\n"));
  EXPECT_TRUE(
      log.Contains(": Bad cookie response received; ignored!0 | fedcba9876543210 | " + kCookie));
  EXPECT_FALSE(at_client.Saw("authorized"));
  EXPECT_EQ(client_->state(), MessageSocket::STATE_CONNECTED);

  client_->set_host_description("who I am");
  peer->SendFrame(MSG_COOKIE_RESPONSE, kCookie);
  peer->SendFrame(MSG_COOKIE_RESPONSE, kCookie);
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("ignored!1"); }));
  EXPECT_THAT(at_client.events, ElementsAre("port file", "connected", "authorized"));
  ASSERT_TRUE(PumpUntil([&] { return peer->frames.size() == 2; }));
  EXPECT_THAT(peer->frames,
              ElementsAre(Pair(MSG_COOKIE, kCookie), Pair(MSG_HOST_DESCRIPTION, "who I am")));
}

TEST_F(MessageSocketTest, FramesAreReadHoweverTheStreamIsCut) {
  ASSERT_TRUE(listener_->Listen());
  const auto peer = ConnectRaw();
  LinkWatcher at_server(accepted_[0].get());
  const std::string stream =
      RawPeer::Framed(MSG_COOKIE, listener_->cookie()) + RawPeer::Framed(MSG_DATA, "one");
  for (const char byte : stream) {
    peer->SendBytes(std::string(1, byte));
    Drain();
  }
  peer->SendBytes(RawPeer::Framed(MSG_DATA, "two") + RawPeer::Framed(MSG_DATA, "three") +
                  RawPeer::Framed(MSG_DATA, "four").substr(0, 8));
  ASSERT_TRUE(PumpUntil([&] { return at_server.texts.size() == 3; }));
  EXPECT_THAT(at_server.texts, ElementsAre("one", "two", "three"));
  peer->SendBytes("ur");
  ASSERT_TRUE(PumpUntil([&] { return at_server.texts.size() == 4; }));
  EXPECT_EQ(at_server.texts.back(), "four");
}

TEST_F(MessageSocketTest, WhatIsSentWhileConnectingLeavesAfterTheConnection) {
  ASSERT_TRUE(listener_->Listen());
  ASSERT_TRUE(client_->Connect(nullptr));
  EXPECT_TRUE(client_->Send("queued"));  // after the cookie, so the other end takes it
  EXPECT_TRUE(PumpUntil([this] { return at_accepted_ && at_accepted_->Saw("message"); }));
  EXPECT_THAT(at_accepted_->texts, ElementsAre("queued"));
}

TEST_F(MessageSocketTest, BigTextsArriveWholeAndInOrderBothWays) {
  Link();
  LinkWatcher at_client(client_.get());
  LinkWatcher at_server(accepted_[0].get());
  std::vector<std::string> sent;
  for (size_t i = 0; i < 6; ++i) {
    std::string text(i % 2 == 0 ? 2'000'000 + i : i, ' ');
    for (size_t j = 0; j < text.size(); ++j) text[j] = static_cast<char>((i + j) * 31 % 251);
    sent.push_back(std::move(text));
  }
  for (const std::string& text : sent) {
    ASSERT_TRUE(client_->Send(text));
    ASSERT_TRUE(accepted_[0]->Send(text));
  }
  EXPECT_TRUE(
      PumpUntil([&] { return at_client.texts.size() == 6 && at_server.texts.size() == 6; }));
  EXPECT_TRUE(at_client.texts == sent);
  EXPECT_TRUE(at_server.texts == sent);
}

TEST_F(MessageSocketTest, AnEndThatClosesIsSeenByTheOtherAfterItsLastText) {
  Link();
  LinkWatcher at_client(client_.get());
  ASSERT_TRUE(accepted_[0]->Send("goodbye"));
  accepted_[0]->Close();
  EXPECT_FALSE(accepted_[0]->Send("too late"));
  ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("closed"); }));
  EXPECT_THAT(at_client.events, ElementsAre("message", "closed"));
  EXPECT_EQ(at_client.close_error, 0);
  EXPECT_EQ(client_->state(), MessageSocket::STATE_CLOSED);
  EXPECT_FALSE(client_->authorized());
  EXPECT_EQ(client_->cookie(), "");
  EXPECT_FALSE(client_->Send("too late"));

  accepted_.clear();
  ASSERT_TRUE(client_->Connect(nullptr));  // the same object again
  EXPECT_TRUE(PumpUntil([this] { return client_->authorized(); }));
}

TEST_F(MessageSocketTest, AHalfFrameOfAnEarlierConnectionIsForgotten) {
  Link();
  LinkWatcher at_client(client_.get());
  auto peer = std::move(accepted_[0]);
  accepted_.clear();
  client_->Close();
  {
    const auto raw = AcceptRaw(kCookie);
    raw->SendBytes(RawPeer::Framed(MSG_COOKIE_RESPONSE, kCookie).substr(0, 10));
    Drain();
    raw->socket->Close();
    ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("closed"); }));
  }
  const auto raw = AcceptRaw(kCookie);
  raw->SendFrame(MSG_COOKIE_RESPONSE, kCookie);
  EXPECT_TRUE(PumpUntil([this] { return client_->authorized(); }));
}

TEST_F(MessageSocketTest, ARefusedConnectionIsReportedAsClosed) {
  ASSERT_TRUE(listener_->Listen());
  const int port = listener_->port();
  listener_->Close();
  ASSERT_TRUE(WritePortFile(path_, port, kCookie));
  LinkWatcher at_client(client_.get());
  ASSERT_TRUE(client_->Connect(nullptr));
  ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("closed"); }));
  EXPECT_THAT(at_client.events, ElementsAre("port file", "closed"));
  EXPECT_EQ(at_client.close_error, ECONNREFUSED);
}

TEST_F(MessageSocketTest, APortFileThatIsNoGoodFailsTheConnection) {
  const int descriptors = test::OpenDescriptors();
  LinkWatcher at_client(client_.get());
  int error = 0;
  EXPECT_FALSE(client_->Connect(&error));  // there is none
  for (const int port : {0, -1, 65536, 70000}) {
    ASSERT_TRUE(WritePortFile(path_, port, kCookie));
    error = 0;
    EXPECT_FALSE(client_->Connect(&error)) << port;
    EXPECT_NE(error, 0);
  }
  const CapturedLog log;
  for (const char* const content : {"", "\x88\x13", "\x88\x13..cookie"}) {
    test::WriteFile(path_, content);
    EXPECT_FALSE(client_->Connect(&error));
    EXPECT_EQ(client_->port(), 0);
    EXPECT_EQ(client_->cookie(), "");
  }
  EXPECT_EQ(log.Count("FileStream::Read() failed, read="), 3);
  EXPECT_THAT(at_client.events, testing::Each("port file"));
  EXPECT_EQ(at_client.events.size(), 8u);
  EXPECT_EQ(client_->state(), MessageSocket::STATE_CLOSED);
  EXPECT_EQ(test::OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace mpbp
