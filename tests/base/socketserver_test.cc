// The socket server and its sockets, over loopback.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/asyncsocketdispatcher.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "tests/base/looptest.h"

namespace mpbp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Writes down what a socket raises and does what the test says about it.
class Watcher : public SlotOwner {
 public:
  explicit Watcher(AsyncSocket* socket) {
    socket->SignalConnectEvent.Connect(this, &Watcher::OnConnect);
    socket->SignalReadEvent.Connect(this, &Watcher::OnRead);
    socket->SignalWriteEvent.Connect(this, &Watcher::OnWrite);
    socket->SignalCloseEvent.Connect(this, &Watcher::OnClose);
  }
  bool Saw(const std::string& event) const {
    return std::find(events.begin(), events.end(), event) != events.end();
  }

  std::vector<std::string> events;
  std::function<void(const std::string& event, AsyncSocket*)> then;

 private:
  void Note(const std::string& event, AsyncSocket* socket) {
    events.push_back(event);
    if (then) then(event, socket);
  }
  void OnConnect(AsyncSocket* socket) { Note("connect", socket); }
  void OnRead(AsyncSocket* socket) { Note("read", socket); }
  void OnWrite(AsyncSocket* socket) { Note("write", socket); }
  void OnClose(AsyncSocket* socket, int error) { Note("close " + std::to_string(error), socket); }
};

class SocketServerTest : public test::LoopTest {
 protected:
  struct Pair {
    std::unique_ptr<AsyncSocket> client;
    std::unique_ptr<AsyncSocket> accepted;
  };

  std::unique_ptr<AsyncSocket> MakeListener() {
    auto listener = server()->CreateAsyncSocket(SOCK_STREAM);
    EXPECT_EQ(listener->Bind(SocketAddress::Loopback(0)), 0);
    EXPECT_EQ(listener->Listen(5), 0);
    return listener;
  }

  Pair MakePair() {
    Pair pair;
    const auto listener = MakeListener();
    pair.client = server()->CreateAsyncSocket(SOCK_STREAM);
    Watcher watcher(pair.client.get());
    EXPECT_EQ(pair.client->Connect(listener->GetLocalAddress()), 0);
    EXPECT_TRUE(PumpUntil([&] {
      if (!pair.accepted) pair.accepted = listener->Accept(nullptr);
      return pair.accepted && watcher.Saw("connect");
    }));
    Drain();  // the write events of a fresh connection
    return pair;
  }

  // A port of 127.0.0.1 that nobody listens on.
  static SocketAddress RefusingAddress(PhysicalSocketServer* server) {
    const auto socket = server->CreateSocket(SOCK_STREAM);
    EXPECT_EQ(socket->Bind(SocketAddress::Loopback(0)), 0);
    return socket->GetLocalAddress();
  }
};

TEST_F(SocketServerTest, ARefusedConnectionRaisesCloseWithItsError) {
  const auto socket = server()->CreateAsyncSocket(SOCK_STREAM);
  Watcher watcher(socket.get());
  ASSERT_EQ(socket->Connect(RefusingAddress(server())), 0);
  EXPECT_EQ(socket->GetState(), SOCKET_CONNECTING);
  ASSERT_TRUE(PumpUntil([&] { return !watcher.events.empty(); }));
  Drain();
  EXPECT_THAT(watcher.events, ElementsAre("close 111"));
  EXPECT_EQ(socket->GetState(), SOCKET_CLOSED);
}

TEST_F(SocketServerTest, AConnectionRaisesConnectThenWriteAndBothEndsTalk) {
  const auto listener = MakeListener();
  EXPECT_EQ(listener->GetState(), SOCKET_CONNECTING);
  Watcher at_listener(listener.get());
  const auto client = server()->CreateAsyncSocket(SOCK_STREAM);
  Watcher at_client(client.get());
  ASSERT_EQ(client->Connect(listener->GetLocalAddress()), 0);
  EXPECT_EQ(client->Connect(listener->GetLocalAddress()), -1);
  EXPECT_EQ(client->GetError(), EALREADY);
  ASSERT_TRUE(PumpUntil([&] { return at_client.Saw("write") && at_listener.Saw("read"); }));
  EXPECT_THAT(at_client.events, ElementsAre("connect", "write"));
  SocketAddress peer;
  const auto accepted = listener->Accept(&peer);
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->GetState(), SOCKET_CONNECTED);
  EXPECT_EQ(peer.ToString(), client->GetLocalAddress().ToString());
  EXPECT_EQ(listener->Accept(nullptr), nullptr);

  Watcher at_accepted(accepted.get());
  ASSERT_EQ(client->Send("hello", 5), 5);
  ASSERT_TRUE(PumpUntil([&] { return at_accepted.Saw("read"); }));
  char bytes[16];
  ASSERT_EQ(accepted->Recv(bytes, sizeof(bytes)), 5);
  EXPECT_EQ(std::string(bytes, 5), "hello");
}

TEST_F(SocketServerTest, AListenerGoesOnAcceptingAfterTheFirstConnection) {
  const auto listener = MakeListener();
  Watcher watcher(listener.get());
  std::vector<std::unique_ptr<AsyncSocket>> accepted;
  watcher.then = [&](const std::string&, AsyncSocket* socket) {
    accepted.push_back(socket->Accept(nullptr));
  };
  std::vector<std::unique_ptr<AsyncSocket>> clients;
  for (size_t i = 0; i < 8; ++i) {
    clients.push_back(server()->CreateAsyncSocket(SOCK_STREAM));
    ASSERT_EQ(clients.back()->Connect(listener->GetLocalAddress()), 0);
  }
  EXPECT_TRUE(PumpUntil([&] { return accepted.size() == 8; }));
}

TEST_F(SocketServerTest, TheEndOfTheStreamIsReportedAfterItsData) {
  Pair pair = MakePair();
  Watcher watcher(pair.client.get());
  std::string got;
  watcher.then = [&](const std::string& event, AsyncSocket* socket) {
    char bytes[2];  // small: the data takes several events
    const int count = event == "read" ? socket->Recv(bytes, sizeof(bytes)) : 0;
    if (count > 0) got.append(bytes, static_cast<size_t>(count));
  };
  ASSERT_EQ(pair.accepted->Send("last words", 10), 10);
  pair.accepted->Close();
  ASSERT_TRUE(PumpUntil([&] { return watcher.Saw("close 0"); }));
  EXPECT_EQ(got, "last words");
  EXPECT_EQ(watcher.events.back(), "close 0");
}

TEST_F(SocketServerTest, ReceivingAtTheEndOfTheStreamSaysLater) {
  Pair pair = MakePair();
  Watcher watcher(pair.client.get());
  pair.accepted->Close();
  char byte = 0;
  int result = 0;
  const uint32_t start = Time();
  do {
    result = pair.client->Recv(&byte, 1);
  } while (result != -1 && TimeDiff(Time(), start) < test::kDeadlineMs);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(pair.client->GetError(), EWOULDBLOCK);
  ASSERT_TRUE(PumpUntil([&] { return !watcher.events.empty(); }));
  EXPECT_EQ(watcher.events.back(), "close 0");
}

TEST_F(SocketServerTest, SendingGoesOnAfterShortCounts) {
  Pair pair = MakePair();
  std::string sent(6'000'000, ' ');
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 31 % 251);
  size_t offset = 0;
  bool stalled = false;
  const auto send_more = [&] {
    // One call an event: a short count alone must bring the next one.
    const size_t left = sent.size() - offset;
    if (left == 0) return;
    const int count = pair.client->Send(sent.data() + offset, left);
    stalled = stalled || count < 0 || static_cast<size_t>(count) < left;
    if (count > 0) {
      offset += static_cast<size_t>(count);
    } else {
      EXPECT_TRUE(IsBlockingError(pair.client->GetError()));
    }
  };
  Watcher writer(pair.client.get());
  writer.then = [&](const std::string& event, AsyncSocket*) {
    if (event == "write") send_more();
  };
  send_more();
  EXPECT_TRUE(stalled);
  Drain();  // the peer's buffer is full now
  std::string got;
  Watcher reader(pair.accepted.get());
  reader.then = [&](const std::string& event, AsyncSocket* socket) {
    std::array<char, 65536> bytes;
    const int count = event == "read" ? socket->Recv(bytes.data(), bytes.size()) : 0;
    if (count > 0) got.append(bytes.data(), static_cast<size_t>(count));
  };
  // The first read event came before anybody listened to it; reading arms the next one.
  reader.then("read", pair.accepted.get());
  EXPECT_TRUE(PumpUntil([&] { return got.size() >= sent.size(); }));
  EXPECT_TRUE(got == sent);
}

TEST_F(SocketServerTest, AHandlerMayCloseOrDeleteItsOwnSocketOrAnother) {
  for (const bool destroy : {false, true}) {
    for (const bool own : {false, true}) {
      Pair a = MakePair();
      Pair b = MakePair();
      Watcher at_a(a.client.get());
      Watcher at_b(b.client.get());
      // Both are readable in one round; the first handler ends the one socket, or the other.
      const auto end = [&](const std::string& event, AsyncSocket* socket) {
        if (event != "read") return;
        std::unique_ptr<AsyncSocket>& mine = socket == a.client.get() ? a.client : b.client;
        std::unique_ptr<AsyncSocket>& other = socket == a.client.get() ? b.client : a.client;
        std::unique_ptr<AsyncSocket>& chosen = own ? mine : other;
        if (!chosen) return;
        chosen->Close();
        if (destroy) chosen.reset();
      };
      at_a.then = end;
      at_b.then = end;
      ASSERT_EQ(a.accepted->Send("x", 1), 1);
      ASSERT_EQ(b.accepted->Send("x", 1), 1);
      ASSERT_TRUE(PumpUntil([&] { return at_a.Saw("read") || at_b.Saw("read"); }));
      Drain();
      const auto reads = std::count(at_a.events.begin(), at_a.events.end(), "read") +
                         std::count(at_b.events.begin(), at_b.events.end(), "read");
      EXPECT_EQ(reads, own ? 2 : 1) << destroy;
    }
  }
}

TEST_F(SocketServerTest, ADescriptorNumberUsedAgainWithinARoundGetsNoOldEvents) {
  Pair first = MakePair();
  Pair second = MakePair();
  Watcher at_first(first.client.get());
  std::unique_ptr<AsyncSocket> fresh;
  std::unique_ptr<Watcher> at_fresh;
  at_first.then = [&](const std::string& event, AsyncSocket*) {
    if (event != "read" || fresh) return;
    const int old = static_cast<AsyncSocketDispatcher*>(second.client.get())->GetDescriptor();
    second.client.reset();                            // readable as well
    std::vector<std::unique_ptr<AsyncSocket>> lower;  // take the free numbers below
    while (!fresh || static_cast<AsyncSocketDispatcher*>(fresh.get())->GetDescriptor() < old) {
      lower.push_back(std::move(fresh));
      fresh = server()->CreateAsyncSocket(SOCK_STREAM);
    }
    EXPECT_EQ(static_cast<AsyncSocketDispatcher*>(fresh.get())->GetDescriptor(), old);
    at_fresh = std::make_unique<Watcher>(fresh.get());
  };
  ASSERT_EQ(second.accepted->Send("x", 1), 1);
  ASSERT_EQ(first.accepted->Send("x", 1), 1);
  ASSERT_TRUE(PumpUntil([&] { return fresh != nullptr; }));
  EXPECT_THAT(at_fresh->events, IsEmpty());
}

TEST_F(SocketServerTest, ASocketThatIsConnectedAgainInItsHandlerGetsNoOldEvents) {
  const auto listener = MakeListener();
  Pair pair = MakePair();
  Watcher watcher(pair.client.get());
  watcher.then = [&](const std::string& event, AsyncSocket* socket) {
    if (event != "read" || watcher.events.size() > 1) return;
    socket->Close();
    EXPECT_EQ(socket->Connect(listener->GetLocalAddress()), 0);
  };
  // Readable and writable in the same round.
  char byte = 0;
  ASSERT_EQ(pair.client->Recv(&byte, 1), -1);
  std::string much(8'000'000, 'x');
  ASSERT_LT(pair.client->Send(much.data(), much.size()), 8'000'000);
  std::array<char, 65536> bytes;
  while (pair.accepted->Recv(bytes.data(), bytes.size()) > 0) continue;
  ASSERT_EQ(pair.accepted->Send("x", 1), 1);
  ASSERT_TRUE(PumpUntil([&] { return watcher.Saw("write"); }));
  EXPECT_THAT(watcher.events, ElementsAre("read", "connect", "write"));
}

TEST_F(SocketServerTest, WaitingWithoutTimeEndsUnderAFloodOfData) {
  Pair pair = MakePair();
  std::atomic<bool> done{false};
  const int fd = dup(static_cast<AsyncSocketDispatcher*>(pair.accepted.get())->GetDescriptor());
  ASSERT_EQ(fcntl(fd, F_SETFL, 0), 0);
  pair.accepted.reset();
  std::thread flood([&] {
    const std::string much(65536, 'x');
    while (!done && send(fd, much.data(), much.size(), MSG_NOSIGNAL) > 0) continue;
  });
  Watcher watcher(pair.client.get());
  watcher.then = [&](const std::string&, AsyncSocket* socket) {
    std::array<char, 1024> bytes;
    socket->Recv(bytes.data(), bytes.size());
  };
  EXPECT_TRUE(PumpUntil([&] { return watcher.events.size() > 20; }));
  for (int round = 0; round < 10; ++round) {
    const uint32_t start = Time();
    EXPECT_TRUE(server()->Wait(0, true));
    EXPECT_TRUE(thread_->ProcessMessages(0));
    EXPECT_LT(TimeDiff(Time(), start), 2000);
  }
  done = true;
  pair.client.reset();  // ends a send that blocks
  flood.join();
  close(fd);
}

TEST_F(SocketServerTest, WakeUpFromAnotherThreadEndsAWaitWithoutLimit) {
  std::thread waker([this] {
    for (int i = 0; i < 100; ++i) server()->WakeUp();
  });
  EXPECT_TRUE(server()->Wait(kForever, true));
  waker.join();
  // Further wake-ups cost at most one more round.
  EXPECT_TRUE(server()->Wait(0, true));
  const uint32_t start = Time();
  EXPECT_TRUE(server()->Wait(20, true));
  EXPECT_GE(TimeDiff(Time(), start), 19);
}

TEST_F(SocketServerTest, AWakeUpIsNotLostWhenAHandlerOfTheSameRoundWaitsAgain) {
  Pair pair = MakePair();
  Watcher watcher(pair.client.get());
  watcher.then = [&](const std::string&, AsyncSocket* socket) {
    char bytes[8];
    socket->Recv(bytes, sizeof(bytes));
    EXPECT_TRUE(server()->Wait(0, true));
  };
  ASSERT_EQ(pair.accepted->Send("x", 1), 1);
  server()->WakeUp();
  const uint32_t start = Time();
  EXPECT_TRUE(server()->Wait(3000, true));
  EXPECT_THAT(watcher.events, ElementsAre("read"));
  EXPECT_LT(TimeDiff(Time(), start), 2500);
}

TEST_F(SocketServerTest, WithoutIoOnlyAWakeUpIsServed) {
  Pair pair = MakePair();
  Watcher watcher(pair.client.get());
  ASSERT_EQ(pair.accepted->Send("x", 1), 1);
  EXPECT_TRUE(server()->Wait(10, false));
  EXPECT_THAT(watcher.events, IsEmpty());
  server()->WakeUp();
  EXPECT_TRUE(server()->Wait(kForever, false));
}

TEST_F(SocketServerTest, RemovingTwiceIsLoggedOnceAndChangesNothing) {
  class Text : public StreamInterface {
   public:
    StreamResult Read(void*, size_t, size_t*, int*) override { return StreamResult::SR_EOS; }
    StreamResult Write(const void* data, size_t length, size_t* written, int*) override {
      text.append(static_cast<const char*>(data), length);
      *written = length;
      return StreamResult::SR_SUCCESS;
    }
    void Close() override {}
    std::string text;
  };
  const auto log = std::make_shared<Text>();
  auto socket = MakeListener();
  auto* const dispatcher = static_cast<AsyncSocketDispatcher*>(socket.get());
  EXPECT_TRUE(server()->Add(dispatcher));  // a second time: ignored
  LogMessage::LogToStream(log, LS_WARNING);
  server()->Remove(dispatcher);
  EXPECT_EQ(log->text, "");
  server()->Remove(dispatcher);
  LogMessage::LogToStream(nullptr, LS_NONE);
  EXPECT_THAT(log->text,
              testing::HasSubstr("PhysicalSocketServer asked to remove a unknown "
                                 "dispatcher, potentially from a duplicate call to Add."));
  EXPECT_EQ(std::count(log->text.begin(), log->text.end(), '\n'), 1);
  EXPECT_TRUE(server()->Add(dispatcher));  // so that closing finds it
}

// Fills the numbers below FD_SETSIZE and frees them again.
class ManyDescriptors {
 public:
  ManyDescriptors() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    saved_ = limit;
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 100);
    if (limit.rlim_cur > limit.rlim_max || setrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    while (fds_.empty() || fds_.back() < FD_SETSIZE) {
      const int fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
      if (fd < 0) return;
      fds_.push_back(fd);
    }
    made_ = true;
  }
  ~ManyDescriptors() {
    for (const int fd : fds_) close(fd);
    if (saved_.rlim_max != 0) setrlimit(RLIMIT_NOFILE, &saved_);
  }
  bool made() const { return made_; }
  // Makes room for a few more below the bound.
  void FreeSome(int count) {
    for (; count > 0; --count) {
      close(fds_.front());
      fds_.erase(fds_.begin());
    }
  }

 private:
  rlimit saved_{};
  std::vector<int> fds_;
  bool made_ = false;
};

TEST_F(SocketServerTest, DescriptorsThatSelectCannotWatchAreRefused) {
  const auto listener = MakeListener();
  ManyDescriptors many;
  if (!many.made()) GTEST_SKIP() << "the limit of descriptors cannot be raised";
  const int before = test::OpenDescriptors();
  EXPECT_EQ(server()->CreateAsyncSocket(SOCK_STREAM), nullptr);
  EXPECT_EQ(server()->CreateSocket(SOCK_STREAM), nullptr);
  EXPECT_EQ(server()->WrapSocket(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, FD_SETSIZE)), nullptr);
  {
    MessageQueue queue;  // without a wake-up pipe: it still serves its messages
    test::FunctionHandler handler([](Message*) {});
    queue.PostDelayed(20, &handler, 1);
    Message message;
    EXPECT_TRUE(queue.Get(&message, test::kDeadlineMs));
  }
  EXPECT_EQ(test::OpenDescriptors(), before);

  many.FreeSome(1);
  const auto client = server()->CreateAsyncSocket(SOCK_STREAM);
  ASSERT_TRUE(client);
  ASSERT_EQ(client->Connect(listener->GetLocalAddress()), 0);
  Watcher watcher(client.get());
  Watcher at_listener(listener.get());
  ASSERT_TRUE(PumpUntil([&] { return at_listener.Saw("read") && watcher.Saw("connect"); }));
  EXPECT_EQ(listener->Accept(nullptr), nullptr);  // its number is too high: closed at once
  EXPECT_TRUE(PumpUntil([&] {
    char byte = 0;
    client->Recv(&byte, 1);
    return watcher.Saw("close 0") || watcher.Saw("close 104");
  }));
}

int caught_signal = 0;
int caught_count = 0;
PhysicalSocketServer* signal_server = nullptr;

TEST_F(SocketServerTest, SignalsReachTheirHandlersOnTheLoop) {
  caught_count = 0;
  signal_server = server();
  const auto note = [](int signum) {
    caught_signal = signum;
    ++caught_count;
  };
  ASSERT_TRUE(server()->SetPosixSignalHandler(SIGUSR1, note));
  ASSERT_TRUE(server()->SetPosixSignalHandler(SIGUSR2, [](int) {
    ++caught_count;
    // The last handlers go while one runs.
    signal_server->SetPosixSignalHandler(SIGUSR1, SIG_IGN);
    signal_server->SetPosixSignalHandler(SIGUSR2, SIG_IGN);
  }));
  EXPECT_FALSE(server()->SetPosixSignalHandler(SIGKILL, note));
  raise(SIGUSR1);
  EXPECT_EQ(caught_count, 0);
  ASSERT_TRUE(PumpUntil([] { return caught_count == 1; }));
  EXPECT_EQ(caught_signal, SIGUSR1);
  raise(SIGUSR2);
  ASSERT_TRUE(PumpUntil([] { return caught_count == 2; }));
  raise(SIGUSR1);  // ignored now
  Drain();
  EXPECT_EQ(caught_count, 2);
}

TEST_F(SocketServerTest, AHostNameIsResolvedInTheBackground) {
  const auto listener = MakeListener();
  const uint16_t port = listener->GetLocalAddress().port();
  const auto socket = server()->CreateAsyncSocket(SOCK_STREAM);
  Watcher watcher(socket.get());
  ASSERT_EQ(socket->Connect(SocketAddress("localhost", port)), 0);
  EXPECT_EQ(socket->GetState(), SOCKET_CONNECTING);
  EXPECT_EQ(socket->Connect(SocketAddress("localhost", port)), -1);
  EXPECT_TRUE(PumpUntil([&] { return watcher.Saw("connect"); }));

  // One that goes before its name is found.
  const int descriptors = test::OpenDescriptors();
  auto gone = server()->CreateAsyncSocket(SOCK_STREAM);
  ASSERT_EQ(gone->Connect(SocketAddress("localhost", port)), 0);
  gone.reset();
  EXPECT_TRUE(PumpUntil([&] { return test::OpenDescriptors() == descriptors; }));
}

TEST_F(SocketServerTest, AHostNameThatCannotBeResolvedRaisesCloseAndMayDeleteTheSocket) {
  auto socket = server()->CreateAsyncSocket(SOCK_STREAM);
  Watcher watcher(socket.get());
  watcher.then = [&](const std::string&, AsyncSocket*) { socket.reset(); };
  ASSERT_EQ(socket->Connect(SocketAddress("does-not-exist.invalid", 80)), 0);
  ASSERT_TRUE(PumpUntil([&] { return !watcher.events.empty(); }));
  EXPECT_THAT(watcher.events, ElementsAre("close 113"));
}

}  // namespace
}  // namespace mpbp
