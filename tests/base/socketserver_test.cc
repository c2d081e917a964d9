// The socket server and its sockets, over loopback.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "base/asyncsocketdispatcher.h"
#include "tests/base/looptest.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_limit.h"

namespace mpbp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Socket = std::unique_ptr<AsyncSocket>;

int Descriptor(const Socket& socket) {
  return static_cast<AsyncSocketDispatcher*>(socket.get())->GetDescriptor();
}

// Writes down what a socket raises and reads what comes.
class Watcher : public SlotOwner, public test::EventRecord {
 public:
  explicit Watcher(const Socket& socket) {
    socket->SignalConnectEvent.Connect(this, &Watcher::OnConnect);
    socket->SignalReadEvent.Connect(this, &Watcher::OnRead);
    socket->SignalWriteEvent.Connect(this, &Watcher::OnWrite);
    socket->SignalCloseEvent.Connect(this, &Watcher::OnClose);
  }
  void Receive(AsyncSocket* socket) {
    std::array<char, 65536> bytes;
    const int count = socket->Recv(bytes.data(), std::min(bytes.size(), portion));
    if (count > 0) got.append(bytes.data(), static_cast<size_t>(count));
  }

  std::string got;
  size_t portion = 0;  // read in an event

 private:
  void OnConnect(AsyncSocket*) { Note("connect"); }
  void OnRead(AsyncSocket* socket) {
    if (portion > 0) Receive(socket);
    Note("read");
  }
  void OnWrite(AsyncSocket*) { Note("write"); }
  void OnClose(AsyncSocket*, int error) { Note("close " + std::to_string(error)); }
};

class SocketServerTest : public test::LoopTest {
 protected:
  // A connection, with its first events over and forgotten.
  struct Pair {
    explicit Pair(SocketServerTest& test) : client(test.MakeSocket()) {
      const auto listener = test.MakeListener();
      EXPECT_EQ(client->Connect(listener->GetLocalAddress()), 0);
      EXPECT_TRUE(test.PumpUntil([&] {
        if (!accepted) accepted = listener->Accept(nullptr);
        return accepted && watcher.Saw("connect");
      }));
      test.Drain();
      watcher.events.clear();
    }
    void MakeClientReadable() const { EXPECT_EQ(accepted->Send("x", 1), 1); }

    Socket client;
    Socket accepted;
    Watcher watcher{client};
  };

  Socket MakeSocket() { return server()->CreateAsyncSocket(SOCK_STREAM); }
  Socket MakeListener() {
    auto listener = MakeSocket();
    EXPECT_EQ(listener->Bind(SocketAddress::Loopback(0)), 0);
    EXPECT_EQ(listener->Listen(5), 0);
    return listener;
  }
};

TEST_F(SocketServerTest, ConnectionsAreAcceptedOneAfterAnother) {
  const auto listener = MakeListener();
  Watcher at_listener(listener);
  std::vector<Socket> accepted;
  at_listener.then = [&](const std::string&) { accepted.push_back(listener->Accept(nullptr)); };
  std::vector<Socket> clients;
  for (size_t i = 0; i < 4; ++i) {
    clients.push_back(MakeSocket());
    ASSERT_EQ(clients.back()->Connect(listener->GetLocalAddress()), 0);
  }
  Watcher at_client(clients.back());
  EXPECT_EQ(clients.back()->Connect(listener->GetLocalAddress()), -1);
  EXPECT_EQ(clients.back()->GetError(), EALREADY);
  ASSERT_TRUE(PumpUntil([&] { return accepted.size() == 4 && at_client.Saw("write"); }));
  EXPECT_THAT(at_client.events, ElementsAre("connect", "write"));
  EXPECT_EQ(listener->Accept(nullptr), nullptr);
}

TEST_F(SocketServerTest, TheEndOfTheStreamIsReportedAfterItsDataAndNotByReceiving) {
  for (const std::string data : {"last words", ""}) {
    Pair pair(*this);
    pair.watcher.portion = 2;  // small: the data takes several events
    static_cast<void>(pair.accepted->Send(data.data(), data.size()));
    pair.accepted->Close();
    if (data.empty()) pair.watcher.Receive(pair.client.get());
    ASSERT_TRUE(PumpUntil([&] { return pair.watcher.Saw("close 0"); }));
    EXPECT_EQ(pair.watcher.got, data);
    EXPECT_EQ(pair.watcher.events.back(), "close 0");
    // No signal ends the process.
    EXPECT_TRUE(PumpUntil([&] { return pair.client->Send("x", 1) < 0; }));
    EXPECT_THAT(pair.client->GetError(), testing::AnyOf(EPIPE, ECONNRESET));
  }
}

TEST_F(SocketServerTest, AHandlerMayCloseOrDeleteASocketThatHasEventsInTheSameRound) {
  enum class Deed { kClose, kDelete, kReuseNumber };
  for (const Deed deed : {Deed::kClose, Deed::kDelete, Deed::kReuseNumber}) {
    for (const bool own : {false, true}) {
      Pair pairs[] = {Pair(*this), Pair(*this)};
      std::vector<Socket> fresh;
      std::vector<std::unique_ptr<Watcher>> at_fresh;
      int reads = 0;
      for (const size_t i : {0, 1}) {
        // Both are readable; the first handler ends the one socket, or the other.
        pairs[i].watcher.then = [&, i](const std::string& event) {
          if (event != "read") return;
          ++reads;
          Socket& chosen = pairs[own ? i : 1 - i].client;
          if (!chosen) return;
          const int number = Descriptor(chosen);
          chosen->Close();
          if (deed != Deed::kClose) chosen.reset();
          if (deed != Deed::kReuseNumber) return;
          // The free numbers below it are taken first.
          do fresh.push_back(MakeSocket());
          while (Descriptor(fresh.back()) < number);
          EXPECT_EQ(Descriptor(fresh.back()), number);
          at_fresh.push_back(std::make_unique<Watcher>(fresh.back()));
        };
        pairs[i].MakeClientReadable();
      }
      ASSERT_TRUE(PumpUntil([&] { return reads > 0; }));
      Drain();
      EXPECT_EQ(reads, own ? 2 : 1) << static_cast<int>(deed);
      for (const auto& watcher : at_fresh) EXPECT_THAT(watcher->events, IsEmpty());
    }
  }
}

TEST_F(SocketServerTest, ASocketThatIsConnectedAgainInItsHandlerGetsNoOldEvents) {
  const auto listener = MakeListener();
  Pair pair(*this);
  pair.watcher.then = [&](const std::string& event) {
    if (event != "read" || pair.watcher.events.size() > 1) return;
    pair.client->Close();
    EXPECT_EQ(pair.client->Connect(listener->GetLocalAddress()), 0);
  };
  // Readable and writable in the same round.
  std::array<char, 65536> bytes;
  ASSERT_EQ(pair.client->Recv(bytes.data(), 1), -1);
  const std::string much(8'000'000, 'x');
  ASSERT_LT(pair.client->Send(much.data(), much.size()), 8'000'000);
  while (pair.accepted->Recv(bytes.data(), bytes.size()) > 0) continue;
  pair.MakeClientReadable();
  ASSERT_TRUE(PumpUntil([&] { return pair.watcher.Saw("write"); }));
  EXPECT_THAT(pair.watcher.events, ElementsAre("read", "connect", "write"));
}

TEST_F(SocketServerTest, WaitingWithoutTimeEndsThoughASocketStaysReady) {
  Pair pair(*this);
  const uint32_t end = TimeAfter(test::kDeadlineMs);
  pair.watcher.then = [&](const std::string&) {
    // Armed again, and nothing is read.
    char byte = 0;
    if (TimeIsLater(Time(), end)) static_cast<void>(pair.client->Recv(&byte, 0));
  };
  pair.MakeClientReadable();
  ASSERT_TRUE(PumpUntil([&] { return pair.watcher.Saw("read"); }));
  EXPECT_TRUE(server()->Wait(0, true) && thread_->ProcessMessages(0));
  EXPECT_GT(pair.watcher.events.size(), 2u);
  EXPECT_TRUE(TimeIsLater(Time(), end));
}

TEST_F(SocketServerTest, WakeUpFromAnotherThreadEndsAWaitWithoutLimitEvenWithoutIo) {
  Pair pair(*this);
  pair.MakeClientReadable();
  EXPECT_TRUE(server()->Wait(10, false));
  std::thread waker([this] {
    for (int i = 0; i < 100; ++i) server()->WakeUp();
  });
  EXPECT_TRUE(server()->Wait(kForever, false));
  waker.join();
  EXPECT_THAT(pair.watcher.events, IsEmpty());
  // Further wake-ups cost at most one more round.
  EXPECT_TRUE(server()->Wait(0, true));
  const uint32_t start = Time();
  EXPECT_TRUE(server()->Wait(20, true));
  EXPECT_GE(TimeDiff(Time(), start), 19);
  EXPECT_THAT(pair.watcher.events, ElementsAre("read"));
}

TEST_F(SocketServerTest, AWakeUpIsNotLostWhenAHandlerOfTheSameRoundWaitsAgain) {
  Pair pair(*this);
  pair.watcher.portion = 8;
  pair.watcher.then = [&](const std::string&) { EXPECT_TRUE(server()->Wait(0, true)); };
  pair.MakeClientReadable();
  server()->WakeUp();
  const uint32_t start = Time();
  EXPECT_TRUE(server()->Wait(2 * test::kDeadlineMs, true));
  EXPECT_THAT(pair.watcher.events, ElementsAre("read"));
  EXPECT_LT(TimeDiff(Time(), start), test::kDeadlineMs);
}

TEST_F(SocketServerTest, SocketsTakeTheirOptionsAndAreNotInherited) {
  const Pair pair(*this);
  for (const Socket* const socket : {&pair.client, &pair.accepted}) {
    EXPECT_EQ(fcntl(Descriptor(*socket), F_GETFD), FD_CLOEXEC);
  }
  using Values = std::vector<std::pair<SocketOption, int>>;
  for (const Values& values : {Values{{OPT_NO_DELAY, 1},
                                      {OPT_DONT_FRAGMENT, 1},
                                      {OPT_SEND_BUFFER, 20'000},
                                      {OPT_RECV_BUFFER, 10'000}},
                               Values{{OPT_NO_DELAY, 0}, {OPT_DONT_FRAGMENT, 0}}}) {
    for (const auto& [option, set] : values) EXPECT_EQ(pair.client->SetOption(option, set), 0);
    for (const auto& [option, set] : values) {
      int got = -1;
      EXPECT_EQ(pair.client->GetOption(option, &got), 0);
      EXPECT_EQ(got, set > 1 ? 2 * set : set) << option;  // the system doubles sizes of buffers
    }
  }
  EXPECT_EQ(pair.client->SetOption(OPT_DSCP, 1), -1);
}

TEST_F(SocketServerTest, DescriptorsThatSelectCannotWatchAreRefused) {
  const test::ScopedLimit limit(RLIMIT_NOFILE, FD_SETSIZE + 100);
  if (!limit.done()) GTEST_SKIP() << "the limit cannot be raised";
  std::vector<int> fds;  // every number below the bound
  const auto duplicate = [] { return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0); };
  do fds.push_back(duplicate());
  while (fds.back() >= 0 && fds.back() < FD_SETSIZE);
  ASSERT_EQ(fds.back(), FD_SETSIZE);
  close(fds.back());  // it is the next one's again
  fds.pop_back();

  EXPECT_EQ(MakeSocket(), nullptr);
  EXPECT_EQ(server()->CreateSocket(SOCK_STREAM), nullptr);
  EXPECT_EQ(server()->WrapSocket(duplicate()), nullptr);
  {
    MessageQueue queue;  // without a wake-up pipe: it still serves its messages
    test::FunctionHandler handler([](Message*) {});
    queue.PostDelayed(20, &handler, 1);
    Message message;
    EXPECT_TRUE(queue.Get(&message, test::kDeadlineMs));
  }
  const int next = duplicate();
  EXPECT_EQ(next, fds.back() + 1);  // nothing was left open
  close(next);
  for (const int fd : fds) close(fd);
}

TEST_F(SocketServerTest, AtTheDescriptorLimitAcceptingRestsAndThenGoesOn) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer that goes with it opens pipes to look at objects";
#endif
  const auto listener = MakeListener();
  Socket accepted;
  Watcher watcher(listener);
  watcher.then = [&](const std::string&) {
    accepted = listener->Accept(nullptr);
    if (watcher.events.size() % 4 == 0) server()->WakeUp();
  };
  const auto client = MakeSocket();
  ASSERT_EQ(client->Connect(listener->GetLocalAddress()), 0);
  const int next = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  close(next);
  auto none_left = std::make_unique<test::ScopedLimit>(RLIMIT_NOFILE, static_cast<rlim_t>(next));
  const test::CapturedLog log;
  const uint32_t start = Time();
  // One long wait: nothing else ends it or makes it look again.
  EXPECT_TRUE(server()->Wait(test::kDeadlineMs, true));
  const int32_t elapsed = TimeDiff(Time(), start);
  none_left.reset();
  EXPECT_EQ(watcher.events.size(), 4u);
  EXPECT_EQ(accepted, nullptr);
  EXPECT_GE(elapsed, 3 * 99);
  EXPECT_LE(log.Count("Cannot accept a connection"), 1 + elapsed / 1000);
  EXPECT_TRUE(log.Contains("Cannot accept a connection, err=" + std::to_string(EMFILE)));
  EXPECT_TRUE(PumpUntil([&] { return accepted != nullptr; }));
}

TEST_F(SocketServerTest, ASocketMayGoBeforeOrWhenItsHostNameIsResolved) {
  const auto listener = MakeListener();
  const SocketAddress address("localhost", listener->GetLocalAddress().port());
  // One that goes before its name is found, and one whose name cannot be found.
  const int descriptors = test::OpenDescriptors();
  auto gone = MakeSocket();
  ASSERT_EQ(gone->Connect(address), 0);
  EXPECT_EQ(gone->GetState(), SOCKET_CONNECTING);
  gone->Close();
  EXPECT_EQ(gone->GetState(), SOCKET_CLOSED);
  gone.reset();
  auto lost = MakeSocket();
  Watcher at_lost(lost);
  at_lost.then = [&](const std::string&) { lost.reset(); };
  ASSERT_EQ(lost->Connect(SocketAddress("does-not-exist.invalid", 80)), 0);
  EXPECT_TRUE(PumpUntil([&] { return !lost && test::OpenDescriptors() == descriptors; }));
  EXPECT_THAT(at_lost.events, ElementsAre("close 113"));
}

}  // namespace
}  // namespace mpbp
