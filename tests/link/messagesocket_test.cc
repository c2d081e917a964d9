// Both ends of the link over loopback, and each against a peer that does it wrong.
#include "messagesocket.h"

#include <gmock/gmock.h>

#include "tests/link/linktest.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::FileMode;
using test::LinkWatcher;
using test::RawPeer;
using testing::ElementsAre;
using testing::Pair;

class MessageSocketTest : public test::LinkTest {};

const std::string kCookie = "0123456789abcdef";

TEST_F(MessageSocketTest, HandshakeAuthorizesBothEndsAndTextsGoWholeAndInOrderBothWays) {
  client_->set_host_description("a page");
  LinkWatcher at_client(client_.get());
  ASSERT_TRUE(listener_->Listen());
  EXPECT_FALSE(client_->Send("too early"));
  ASSERT_TRUE(client_->Connect(nullptr));
  EXPECT_FALSE(client_->Connect(nullptr));  // already connecting
  EXPECT_TRUE(client_->Send("queued"));     // leaves after the cookie, so the other end takes it
  ASSERT_TRUE(PumpUntil(
      [&] { return at_client.Saw("authorized") && at_accepted_ && at_accepted_->Saw("message"); }));
  EXPECT_THAT(at_client.events, ElementsAre("port file", "connected", "authorized"));
  std::vector<std::string> sent{"queued", "", std::string("\0nul\xFF", 5)};
  for (size_t size = 2'000'000; size < 2'000'003; ++size) {
    sent.emplace_back(size, ' ');
    for (size_t i = 0; i < size; ++i) sent.back()[i] = static_cast<char>((i + size) * 31 % 251);
  }
  for (const std::string& text : sent) {
    EXPECT_TRUE((text == "queued" || client_->Send(text)) && accepted_[0]->Send(text));
  }
  EXPECT_TRUE(
      PumpUntil([&] { return at_client.texts.size() == 6 && at_accepted_->texts.size() == 6; }));
  EXPECT_TRUE(at_client.texts == sent && at_accepted_->texts == sent);
  EXPECT_EQ(accepted_[0]->host_description(), "a page");
}

TEST_F(MessageSocketTest, EveryListenHasAFreshCookieInAPrivatePortFileThatGoesWithIt) {
  std::string last(16, ' ');
  for (const bool destroy : {false, true}) {
    ASSERT_TRUE(listener_->Listen());
    EXPECT_FALSE(listener_->Listen());
    EXPECT_EQ(FileMode(path_), 0600);
    EXPECT_EQ(listener_->cookie().size(), 16u);
    EXPECT_NE(std::exchange(last, listener_->cookie()), listener_->cookie());
    for (int i = 0; i < 2; ++i) listener_->Close();
    if (destroy) listener_.reset();
    EXPECT_EQ(FileMode(path_), -1);
  }
}

TEST_F(MessageSocketTest, WhatIsSentBeforeAuthorizationIsDropped) {
  const CapturedLog log;
  ASSERT_TRUE(listener_->Listen());
  const auto peer = ConnectRaw();
  const std::string cookie = listener_->cookie();
  peer->SendFrames({{MSG_DATA, "early"},
                    {MSG_HOST_DESCRIPTION, "nobody"},
                    {MSG_COOKIE, ""},
                    {MSG_COOKIE, cookie.substr(1)},
                    {MSG_COOKIE, cookie + "x"},
                    {MSG_COOKIE, std::string(cookie.size(), 'x')}});
  ASSERT_TRUE(PumpUntil([&] { return peer->frames.size() == 4; }));
  const std::pair<uint16_t, std::string> refused(MSG_COOKIE_RESPONSE, "");
  EXPECT_THAT(peer->frames, ElementsAre(refused, refused, refused, refused));
  EXPECT_TRUE(log.Contains(": Unauthorized message received, data=early"));
  EXPECT_TRUE(log.Contains(": Unauthorized host_description message received, data= nobody"));

  // The link is still good for the right cookie, and authorizes once.
  peer->SendFrames({{MSG_COOKIE, cookie}, {MSG_COOKIE, cookie}, {MSG_DATA, "now"}});
  ASSERT_TRUE(PumpUntil([&] { return at_accepted_->Saw("message") && peer->frames.size() == 6; }));
  EXPECT_THAT(at_accepted_->events, ElementsAre("authorized", "message"));
  EXPECT_THAT(peer->frames.back(), Pair(MSG_COOKIE_RESPONSE, cookie));
}

TEST_F(MessageSocketTest, TheClientIgnoresBadCookieResponsesAndUnknownTypes) {
  const CapturedLog log;
  LinkWatcher at_client(client_.get());
  const auto peer = AcceptRaw(kCookie);
  peer->SendFrames({{MSG_DATA, "early"},
                    {MSG_COOKIE_RESPONSE, ""},
                    {MSG_COOKIE_RESPONSE, "fedcba9876543210"},
                    {MSG_BINARY, "bytes"},
                    {0xFFFF, ""}});
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("type=65535"); }));
  EXPECT_TRUE(log.Contains(": Unknown message received, type=5\n"));
  EXPECT_TRUE(
      log.Contains(": Bad cookie response received; ignored!0 | fedcba9876543210 | " + kCookie));
  EXPECT_FALSE(at_client.Saw("authorized"));
  EXPECT_EQ(client_->state(), MessageSocket::STATE_CONNECTED);

  client_->set_host_description("who I am");
  peer->SendFrames({{MSG_COOKIE_RESPONSE, kCookie}, {MSG_COOKIE_RESPONSE, kCookie}});
  ASSERT_TRUE(PumpUntil([&] { return log.Contains("ignored!1"); }));
  EXPECT_THAT(at_client.events, ElementsAre("port file", "connected", "authorized"));
  ASSERT_TRUE(PumpUntil([&] { return peer->frames.size() == 2; }));
  EXPECT_THAT(peer->frames,
              ElementsAre(Pair(MSG_COOKIE, kCookie), Pair(MSG_HOST_DESCRIPTION, "who I am")));
}

TEST_F(MessageSocketTest, AnEndThatClosesIsSeenByTheOtherAfterItsLastTextAndItMayConnectAgain) {
  Link();
  LinkWatcher at_client(client_.get());
  at_client.then = [&](const std::string& event) {
    if (event != "closed") return;
    EXPECT_THAT(at_client.events, ElementsAre("message", "closed"));
    EXPECT_EQ(at_client.close_error, 0);
    EXPECT_EQ(client_->state(), MessageSocket::STATE_CLOSED);
    EXPECT_FALSE(client_->Send("too late"));
    client_->Close();
    EXPECT_FALSE(client_->authorized());
    EXPECT_TRUE(client_->Connect(nullptr));
  };
  ASSERT_TRUE(accepted_[0]->Send("goodbye"));
  accepted_[0]->Close();
  EXPECT_FALSE(accepted_[0]->Send("too late"));
  EXPECT_TRUE(PumpUntil([&] { return at_client.Saw("authorized"); }));
}

TEST_F(MessageSocketTest, AHalfFrameOfAnEarlierConnectionIsForgotten) {
  LinkWatcher at_client(client_.get());
  const std::string response = RawPeer::Framed(MSG_COOKIE_RESPONSE, kCookie);
  auto raw = AcceptRaw(kCookie);
  raw->SendBytes(response.substr(0, 10));
  Drain();
  raw->socket->Close();
  ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("closed"); }));
  raw = AcceptRaw(kCookie);
  for (const char byte : response) {
    raw->SendBytes(std::string(1, byte));
    Drain();
  }
  EXPECT_TRUE(client_->authorized());
}

TEST_F(MessageSocketTest, ARefusedConnectionIsReportedAsClosedAndABadPortFileAtOnce) {
  LinkWatcher at_client(client_.get());
  // The port that the file has is nobody's, and then the connecting socket's own.
  for (const bool own : {false, true}) {
    auto socket = server()->CreateAsyncSocket(SOCK_STREAM);
    ASSERT_EQ(socket->Bind(SocketAddress::Loopback(0)), 0);
    ASSERT_TRUE(WritePortFile(path_, socket->GetLocalAddress().port(), kCookie));
    if (!own) socket->Close();
    at_client.events.clear();
    ASSERT_TRUE(own ? client_->Connect(std::move(socket), nullptr) : client_->Connect(nullptr));
    ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("closed"); }));
    EXPECT_THAT(at_client.events, ElementsAre("port file", "closed"));
    EXPECT_EQ(std::exchange(at_client.close_error, 0), ECONNREFUSED);
  }

  const int descriptors = test::OpenDescriptors();
  for (const int bad_port : {0, -1, 65536}) {
    ASSERT_TRUE(WritePortFile(path_, bad_port, kCookie));
    int error = 0;
    EXPECT_FALSE(client_->Connect(&error)) << bad_port;
    EXPECT_NE(error, 0);
  }
  for (const char* const content : {"", "\x88\x13", "\x88\x13..cookie"}) {
    test::WriteFile(path_, content);
    EXPECT_FALSE(client_->Connect(nullptr));
    EXPECT_EQ(client_->cookie(), "");
  }
  EXPECT_EQ(client_->state(), MessageSocket::STATE_CLOSED);
  EXPECT_EQ(test::OpenDescriptors(), descriptors);

  // What was not sent then is not sent now.
  const auto peer = AcceptRaw("another cookie !");
  ASSERT_TRUE(PumpUntil([&] { return !peer->frames.empty(); }));
  EXPECT_THAT(peer->frames, ElementsAre(Pair(MSG_COOKIE, "another cookie !")));
}

TEST_F(MessageSocketTest, ATextDoesNotWaitForTheAcknowledgementOfTheOneBefore) {
  Link();
  LinkWatcher at_client(client_.get());
  // Milliseconds until the other end has the text.
  const auto send = [this](MessageSocket& from, const LinkWatcher& to) {
    const size_t count = to.texts.size() + 1;
    const uint32_t sent = Time();
    EXPECT_TRUE(from.Send("text") && PumpUntil([&] { return to.texts.size() == count; }));
    return TimeDiff(Time(), sent);
  };
  // Ends that answer each other acknowledge with their answers, and late where there is none.
  for (int i = 0; i < 50; ++i) send(*client_, *at_accepted_), send(*accepted_[0], at_client);
  // Of the twenty the slowest counts; of several attempts, since the machine may be busy, the best.
  int32_t worst = 20;
  for (int attempt = 0; attempt < 10 && worst >= 20; ++attempt) {
    worst = 0;
    for (int i = 0; i < 20; ++i) worst = std::max(worst, send(*client_, *at_accepted_));
    send(*accepted_[0], at_client);
  }
  EXPECT_LT(worst, 20);
}

TEST_F(MessageSocketTest, EitherEndMayBeClosedOrDeletedInEveryHandler) {
  const auto try_case = [this](bool on_client, const std::string& event, bool destroy) {
    MakeEnds();
    LinkWatcher at_client(client_.get());
    at_client.then = [&](const std::string& seen) {
      if (!on_client || seen != event) return;
      client_->Close();
      if (destroy) client_.reset();
    };
    accepted_then_ = [&](const std::string& seen) {
      if (on_client || seen != event) return;
      accepted_[0]->Close();
      if (destroy) accepted_.clear();
    };
    ASSERT_TRUE(listener_->Listen());
    if (!client_->Connect(nullptr)) {
      EXPECT_EQ(event, "port file");
      return;
    }
    // Two in one frame list: the second is not for a link that is over.
    static_cast<void>(client_->Send("one") && client_->Send("two"));
    ASSERT_TRUE(PumpUntil([&] {
      if (on_client && !accepted_.empty() && accepted_[0]->authorized()) {
        static_cast<void>(accepted_[0]->Send("one") && accepted_[0]->Send("two"));
        if (event == "closed") accepted_[0]->Close();
      }
      if (!on_client && event == "closed" && at_accepted_ && at_accepted_->Saw("message")) {
        client_->Close();
      }
      return on_client ? at_client.Saw(event) : at_accepted_ && at_accepted_->Saw(event);
    }));
    Drain();
    const LinkWatcher& watcher = on_client ? at_client : *at_accepted_;
    EXPECT_EQ(watcher.events.back(), event);
    EXPECT_LE(watcher.texts.size(), event == "closed" ? 2u : 1u);
    EXPECT_TRUE(!on_client || !client_ || client_->state() == MessageSocket::STATE_CLOSED);
  };
  const int descriptors = test::OpenDescriptors();
  for (const bool destroy : {false, true}) {
    for (const char* const event : {"port file", "connected", "authorized", "message", "closed"}) {
      SCOPED_TRACE(event);
      try_case(true, event, destroy);
    }
    for (const char* const event : {"authorized", "message", "closed"}) {
      SCOPED_TRACE(event);
      try_case(false, event, destroy);
    }
  }
  DropEnds();
  EXPECT_TRUE(PumpUntil([&] { return test::OpenDescriptors() == descriptors; }));
}

TEST_F(MessageSocketTest, TheListenerMayBeDeletedWhenItAccepts) {
  ASSERT_TRUE(listener_->Listen());
  on_accept_ = [this] { listener_.reset(), accepted_.clear(); };
  LinkWatcher watcher(client_.get());
  ASSERT_TRUE(client_->Connect(nullptr));
  const auto behind = server()->CreateAsyncSocket(SOCK_STREAM);  // waits in the same event
  ASSERT_EQ(behind->Connect(SocketAddress::Loopback(static_cast<uint16_t>(listener_->port()))), 0);
  EXPECT_TRUE(PumpUntil([&] { return watcher.Saw("closed"); }));
  EXPECT_EQ(FileMode(path_), -1);
}

TEST_F(MessageSocketTest, AMessageHandlerThatRunsTheLoopIsNotEnteredAgain) {
  Link();
  LinkWatcher watcher(client_.get());
  int depth = 0;
  watcher.then = [&](const std::string&) {
    EXPECT_EQ(++depth, 1);
    if (watcher.texts.size() == 1) {
      EXPECT_TRUE(accepted_[0]->Send("meanwhile"));
      thread_->ProcessMessages(100);  // it takes a moment to arrive
    }
    --depth;
  };
  ASSERT_TRUE(accepted_[0]->Send("first"));
  ASSERT_TRUE(PumpUntil([&] { return watcher.Saw("message"); }));
  // What came meanwhile is handed out with what the next read brings.
  ASSERT_TRUE(accepted_[0]->Send("last"));
  ASSERT_TRUE(PumpUntil([&] { return watcher.texts.size() == 3; }));
  EXPECT_THAT(watcher.texts, ElementsAre("first", "meanwhile", "last"));
}

}  // namespace
}  // namespace mpbp
