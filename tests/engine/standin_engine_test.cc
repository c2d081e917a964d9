// The stand-in engine as a process of its own, seen from the other end of the link.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "engine/enginelock.h"
#include "engine/json.h"
#include "engine/mode.h"
#include "engine/requests.h"
#include "tests/link/linktest.h"
#include "tests/support/scoped_env.h"

namespace mpbp::engine {
namespace {

using test::LinkWatcher;
using test::ScopedEnv;
using testing::HasSubstr;
using testing::StartsWith;

std::string PortFile() { return GetPortFilePath(kPluginPortFile).pathname(); }

std::string LockFile() { return Pathname(PortFile()).folder() + "murmelparlplugin_lock"; }
std::string LogFile() { return Pathname(PortFile()).folder() + "murmelparlplugin.log"; }

// What a process has open under the name of a descriptor; empty for nothing.
std::string OpenAs(pid_t pid, const std::string& fd) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + fd, error);
}

bool HasOpen(pid_t pid, const std::string& path) {
  for (int fd = 0; fd < 32; ++fd) {
    if (OpenAs(pid, std::to_string(fd)) == path) return true;
  }
  return false;
}

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    close(fds[0]);
    CloseWriteEnd();
  }
  void CloseWriteEnd() const {
    if (fds[1] >= 0) close(std::exchange(fds[1], -1));
  }
  std::string ReadAvailable() const {
    char bytes[4096];
    const ssize_t count = read(fds[0], bytes, sizeof(bytes));
    return count > 0 ? std::string(bytes, static_cast<size_t>(count)) : "";
  }
  // Nobody can write to it any more.
  bool Ended() const {
    char byte = 0;
    return read(fds[0], &byte, 1) == 0;
  }

  mutable int fds[2];
};

// One running engine; killed at the end.
class EngineProcess {
 public:
  static constexpr int kInherited = -1;
  static constexpr int kClosed = -2;

  // `output` is where its standard output and error go. Closed means all three standard streams.
  explicit EngineProcess(const char* argument = nullptr, int output = kInherited) {
    posix_spawn_file_actions_t actions;
    EXPECT_EQ(posix_spawn_file_actions_init(&actions), 0);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (output == kClosed) posix_spawn_file_actions_addclose(&actions, stream);
      if (output >= 0 && stream != STDIN_FILENO) {
        posix_spawn_file_actions_adddup2(&actions, output, stream);
      }
    }
    std::string name = "MurmelParlPlugin";
    std::string first = argument ? argument : "";
    char* const argv[] = {name.data(), argument ? first.data() : nullptr, nullptr};
    EXPECT_EQ(posix_spawn(&pid, MPBP_ENGINE_FILE, &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
  }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;
  ~EngineProcess() {
    if (ended) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  bool Ended() {
    rusage usage{};
    if (ended || wait4(pid, &status, WNOHANG, &usage) != pid) return ended;
    cpu_ms = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
             (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
    return ended = true;
  }

  pid_t pid = 0;
  int status = 0;
  bool ended = false;
  long cpu_ms = 0;  // once it has ended
};

// A connection without a plug-in around it, of which there can be very many.
class BlockingPeer {
 public:
  BlockingPeer() {
    int port = 0;
    EXPECT_TRUE(ReadPortFile(PortFile(), &port, &cookie_));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    const timeval deadline{30, 0};
    EXPECT_EQ(setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline)), 0);
  }
  BlockingPeer(const BlockingPeer&) = delete;
  BlockingPeer& operator=(const BlockingPeer&) = delete;
  ~BlockingPeer() { close(fd_); }

  void SendCookie() const {
    const std::string frame = test::RawPeer::Framed(MSG_COOKIE, cookie_);
    EXPECT_EQ(send(fd_, frame.data(), frame.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(frame.size()));
  }
  std::string CookieResponse() const { return test::RawPeer::Framed(MSG_COOKIE_RESPONSE, cookie_); }
  // The next frame; empty at the end of the stream.
  std::string ReceiveFrame() const {
    std::string header = Receive(PluginMessageSocket::kHeaderSize);
    if (header.size() != PluginMessageSocket::kHeaderSize) return header;
    uint32_t length = 0;
    memcpy(&length, header.data() + sizeof(uint16_t), sizeof(length));
    return header + Receive(ntohl(length));
  }

 private:
  std::string Receive(size_t size) const {
    std::string bytes(size, ' ');
    const ssize_t count = recv(fd_, bytes.data(), size, MSG_WAITALL);
    EXPECT_GE(count, 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }

  const int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string cookie_;
};

// A plug-in, as far as the engine can tell.
struct Plugin {
  Plugin() { socket.set_port_file_path(PortFile()); }

  PluginMessageSocket socket;
  LinkWatcher watcher{&socket};
};

class StandinEngineTest : public test::LoopTest {
 protected:
  // In place of the one that runs.
  void StartEngine(const char* mode = "") {
    engine_.reset();
    unlink(PortFile().c_str());
    const ScopedEnv variable("MURMEL_ENGINE_MODE", mode);
    engine_ = std::make_unique<EngineProcess>();
  }
  // A plug-in whose connection is made, authorized or not.
  std::unique_ptr<Plugin> Connect() {
    auto plugin = std::make_unique<Plugin>();
    EXPECT_TRUE(PumpUntil([&] {
      return test::ReadFile(PortFile()).size() >= 20 && plugin->socket.Connect(nullptr);
    }));
    EXPECT_TRUE(PumpUntil([&] { return plugin->watcher.Saw("connected"); }));
    return plugin;
  }
  // The same, with the announcement of an engine read.
  std::unique_ptr<Plugin> Link() {
    auto plugin = Connect();
    EXPECT_THAT(Next(*plugin), StartsWith(R"(["qw",{"engine":"stand-in","pid":)" +
                                          std::to_string(engine_->pid) + ","));
    return plugin;
  }
  // The next text of the engine; what comes instead of one is a failure.
  std::string Next(Plugin& plugin) {
    auto& texts = plugin.watcher.texts;
    if (!PumpUntil([&] { return !texts.empty(); })) return "nothing came";
    std::string text = texts.front();
    texts.erase(texts.begin());
    return text;
  }
  std::string Ask(Plugin& plugin, const std::string& text) {
    EXPECT_TRUE(plugin.socket.Send(text));
    return Next(plugin);
  }
  Json::Value AskParsed(Plugin& plugin, const std::string& text) {
    return ParseMessage(Ask(plugin, text)).value_or(Json::arrayValue);
  }
  bool WaitForEnd() {
    return PumpUntil([this] { return engine_->Ended(); });
  }

  test::ScopedAppData data_;
  std::unique_ptr<EngineProcess> engine_;
};

TEST_F(StandinEngineTest, EchoesWhatIsNoRequestAndWhatIsMalformed) {
  StartEngine();
  const auto plugin = Link();
  std::vector<std::string> texts = {std::string("\xFF\0\xFE", 3), std::string("[\"a\0", 4),
                                    "[\"a\"," + std::string(100'000, '[')};
  for (const char* text : {"plain",
                           "",
                           "{}",
                           "[]",
                           "[1]",
                           "[[\"a\"]]",
                           "[\"unknown\", 1 ]",
                           "[1,2",
                           "[\"echo\",  {\"b\":1, \"a\":2}]",
                           "[\"silent\"]",
                           "[\"silent\",-1]",
                           "[\"slow\",\"5\"]",
                           "[\"slow\",1e300]",
                           "[\"many\",10001,1]",
                           "[\"many\",10000,100000]",
                           "[\"large\",67108865]",
                           "[\"large\",[]]",
                           "[\"ask-http\",\"GET\",\"nowhere\"]",
                           "[\"ask-proxy\"]",
                           "[\"ask-permission\",\"1\"]",
                           "[\"remoting-begin\",{}]",
                           "[\"remoting-stop\"]"}) {
    texts.emplace_back(text);
  }
  for (const std::string& text : texts) EXPECT_EQ(Ask(*plugin, text), text);
}

TEST_F(StandinEngineTest, SendsManyLargeAndSlowTextsAndGoesSilentOrAwayForOneClientOnly) {
  StartEngine();
  const auto plugin = Link();
  EXPECT_EQ(Ask(*plugin, "[\"many\",2,2]"), "[\"many\",0,\"xx\"]");
  EXPECT_EQ(Next(*plugin), "[\"many\",1,\"xx\"]");
  EXPECT_EQ(Ask(*plugin, "[\"large\",3000000]").size(), 3'000'012u);
  const uint32_t start = Time();
  ASSERT_TRUE(plugin->socket.Send("[\"slow\",50,\"later\"]"));
  EXPECT_EQ(Ask(*plugin, "at once"), "at once");
  EXPECT_EQ(Next(*plugin), "[\"slow\",50,\"later\"]");
  EXPECT_GE(TimeDiff(Time(), start), 50);

  const auto other = Link();
  ASSERT_TRUE(plugin->socket.Send("[\"silent\",300]"));
  ASSERT_TRUE(plugin->socket.Send("lost"));
  EXPECT_EQ(Ask(*other, "heard"), "heard");
  EXPECT_TRUE(
      PumpUntil([&] { return !plugin->watcher.texts.empty() || !plugin->socket.Send("again"); }));
  EXPECT_EQ(Next(*plugin), "again");
  ASSERT_TRUE(plugin->socket.Send("[\"drop\"]"));
  EXPECT_TRUE(PumpUntil([&] { return plugin->watcher.Saw("closed"); }));
  EXPECT_EQ(Ask(*other, "still here"), "still here");
}

TEST_F(StandinEngineTest, RemovesItsPortFileUnlessItCrashes) {
  for (const std::string way : {"quit", "term", "int", "idle", "crash"}) {
    const ScopedEnv idle("MURMEL_ENGINE_IDLE_SECONDS", way == "idle" ? "1" : "");
    StartEngine();
    auto plugin = Link();
    if (way == "idle") plugin.reset();  // the time begins when the last one leaves
    if (way == "term" || way == "int") kill(engine_->pid, way == "int" ? SIGINT : SIGTERM);
    if (way == "quit" || way == "crash") {
      EXPECT_TRUE(plugin->socket.Send("[\"" + way + "\"]"));
    }
    ASSERT_TRUE(WaitForEnd()) << way;
    // A status of a signal is its number.
    EXPECT_EQ(engine_->status & 0xFF7F, way == "crash" ? SIGABRT : 0) << way;
    EXPECT_EQ(test::FileMode(PortFile()), way == "crash" ? 0600 : -1) << way;
  }
}

TEST_F(StandinEngineTest, ASecondEngineWaitsForTheEndOfTheFirst) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    StartEngine();
    const auto plugin = Link();
    const std::string file = test::ReadFile(PortFile());
    const auto first = std::exchange(engine_, std::make_unique<EngineProcess>());
    // It has come as far as to the lock.
    ASSERT_TRUE(PumpUntil([&] { return HasOpen(engine_->pid, LockFile()); }));
    EXPECT_EQ(Ask(*plugin, "still served"), "still served");
    EXPECT_EQ(test::ReadFile(PortFile()), file);
    kill(first->pid, signal);
    ASSERT_TRUE(PumpUntil([&] {
      const std::string now = test::ReadFile(PortFile());
      return now.size() >= 20 && now != file;
    }));
    Link();  // checks whose it is
    EXPECT_EQ(test::FileMode(LockFile()), 0600);
  }
}

TEST_F(StandinEngineTest, ASecondEngineGivesUpOnAFirstOneThatStays) {
  StartEngine();
  const auto plugin = Link();
  const std::string file = test::ReadFile(PortFile());
  const Pipe output;
  EngineProcess second(nullptr, output.fds[1]);
  EngineProcess third;
  ASSERT_TRUE(PumpUntil([&] { return HasOpen(third.pid, LockFile()); }));
  kill(third.pid, SIGTERM);
  EXPECT_TRUE(PumpUntil([&] { return third.Ended(); }));
  const uint32_t start = Time();
  while (!second.Ended() && TimeDiff(Time(), start) < 60'000) thread_->ProcessMessages(20);
  ASSERT_TRUE(second.ended);
  EXPECT_EQ(second.status, 0);
  EXPECT_LT(second.cpu_ms, 1000);
  EXPECT_EQ(output.ReadAvailable(), "MurmelParlPlugin: another one is running.\n");
  EXPECT_EQ(test::ReadFile(PortFile()), file);
  EXPECT_EQ(Ask(*plugin, "still served"), "still served");
}

TEST_F(StandinEngineTest, DetachesItselfOnceItListens) {
  for (const bool streams : {true, false}) {
    const Pipe output;
    engine_.reset();
    unlink(PortFile().c_str());
    // Without streams, the numbers of the standard ones must not be given to its lock.
    engine_ =
        std::make_unique<EngineProcess>(nullptr, streams ? output.fds[1] : EngineProcess::kClosed);
    output.CloseWriteEnd();
    const auto plugin = Link();
    EXPECT_TRUE(PumpUntil([&] { return output.Ended(); }));
    EXPECT_EQ(getsid(engine_->pid), engine_->pid);
    for (const char* const fd : {"0", "1", "2"}) EXPECT_EQ(OpenAs(engine_->pid, fd), "/dev/null");
    kill(engine_->pid, SIGHUP);
    EXPECT_EQ(Ask(*plugin, "still here"), "still here");
    EngineLock lock;
    EXPECT_EQ(lock.Take(LockFile(), 0), EngineLock::Outcome::kHeldByOther);
    EXPECT_EQ(test::FileMode(LogFile()), 0600);
    EXPECT_THAT(test::ReadFile(LogFile()), HasSubstr("MessageSocket listening, port="));
  }
}

TEST_F(StandinEngineTest, StaysInTheForegroundWhenToldAndSaysWhatIsWrongBeforeItDetaches) {
  const Pipe output;
  engine_ = std::make_unique<EngineProcess>("--foreground", output.fds[1]);
  auto plugin = Link();
  EXPECT_THAT(output.ReadAvailable(), HasSubstr("MessageSocket listening, port="));
  EXPECT_EQ(getsid(engine_->pid), getsid(0));
  kill(engine_->pid, SIGHUP);
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(engine_->status, 0);
  EXPECT_EQ(test::FileMode(PortFile()), -1);

  engine_ = std::make_unique<EngineProcess>("--forground", output.fds[1]);
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(WEXITSTATUS(engine_->status), 2);
  EXPECT_THAT(output.ReadAvailable(), HasSubstr("takes no arguments but"));
  unlink(LockFile().c_str());
  ASSERT_EQ(mkdir(LockFile().c_str(), 0700), 0);
  engine_ = std::make_unique<EngineProcess>(nullptr, output.fds[1]);
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(WEXITSTATUS(engine_->status), 1);
  EXPECT_THAT(output.ReadAvailable(), HasSubstr("cannot lock " + LockFile()));
}

TEST_F(StandinEngineTest, ServesHundredsAtATimeAndDisconnectsWhatIsTooMuch) {
  constexpr size_t kServed = 900;
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  if (saved.rlim_max < 2048) GTEST_SKIP() << "too few descriptors";
  const auto limit = [&](rlim_t now) {
    const rlimit value{now, saved.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &value), 0);
  };
  limit(256);  // the engine raises it for itself
  StartEngine();
  limit(2048);
  ASSERT_TRUE(PumpUntil([] { return test::ReadFile(PortFile()).size() >= 20; }));
  {
    std::list<BlockingPeer> peers(kServed);
    for (BlockingPeer& peer : peers) peer.SendCookie();
    for (BlockingPeer& peer : peers) {
      ASSERT_EQ(peer.ReceiveFrame(), peer.CookieResponse());
      ASSERT_THAT(peer.ReceiveFrame().substr(PluginMessageSocket::kHeaderSize),
                  StartsWith("[\"qw\","));
    }
    // Fills the places that are left, and more.
    std::list<BlockingPeer> more(FD_SETSIZE - kServed);
    BlockingPeer too_much;
    EXPECT_EQ(too_much.ReceiveFrame(), "");
    peers.front().SendCookie();
    EXPECT_EQ(peers.front().ReceiveFrame(), peers.front().CookieResponse());
  }
  limit(saved.rlim_cur);
  Link();  // the places are free again
}

TEST_F(StandinEngineTest, AsksThePluginAndTellsThePageWhatItAnswered) {
  StartEngine();
  const auto plugin = Link();
  const std::string http =
      Ask(*plugin, R"(["ask-http","GET","http://h.example:81/p?q","A: b\n","body"])");
  const auto request = ParseMessage(http);
  ASSERT_TRUE(request) << http;
  const std::string id = (*request)[1].asString();
  EXPECT_EQ(http, "[\"httprequest\"," + id +
                      R"(,{"host":"h.example","path":"/p?q","port":81,"proto":"http",)" +
                      R"("verb":"GET"},"A: b\n","body"])");
  const std::string answer = "[\"httpresponse\"," + id + ",{\"error\":0},\"HTTP/1.1 200 \"]";
  EXPECT_EQ(Ask(*plugin, answer), "[\"http-result\"," + answer + "]");

  const Json::Value proxy = AskParsed(*plugin, R"(["ask-proxy","http://h/"])");
  EXPECT_EQ(proxy[0].asString() + proxy[2].asString(), "getproxyforurlhttp://h/");
  EXPECT_EQ(Ask(*plugin, "[\"proxyforurl\"," + proxy[1].asString() + ",\"DIRECT\"]"),
            R"(["proxy-result","http://h/","DIRECT"])");

  const Json::Value permission = AskParsed(*plugin, R"(["ask-permission",2])");
  EXPECT_EQ(permission[0].asString() + permission[2].asString(), "mpbp-request-permission2");
  EXPECT_EQ(Ask(*plugin, "[\"mpbp-request-permission-result\",2,\"" + permission[1].asString() +
                             "\"," + permission[3].asString() + ",true]"),
            R"(["permission-result",2,true])");

  EXPECT_EQ(Ask(*plugin, R"(["remoting-begin","s1"])"), R"(["mpbp-start-remoting","s1"])");
  const std::string event = R"(["mpbp-terminate-remoting-event","","s1"])";
  EXPECT_EQ(Ask(*plugin, event), R"(["remoting-ended","s1"])");
  EXPECT_EQ(Ask(*plugin, R"(["remoting-stop","s1"])"), R"(["mpbp-stop-remoting","s1"])");

  // What nothing asked for reaches the page too, but for comments.
  for (const std::string& text :
       {answer, event, std::string(R"(["proxyforurl"])"), std::string(R"(["httpresponse",-1])"),
        std::string(R"(["mpbp-request-permission-result",{}])")}) {
    EXPECT_EQ(Ask(*plugin, text), WriteMessage(MakeMessage("unasked", text)));
  }
  ASSERT_TRUE(plugin->socket.Send(R"(["comment","JS layer took 1001ms to handle message."])"));
  EXPECT_EQ(Ask(*plugin, "next"), "next");
}

// What the plug-in would do with a text of the engine.
bool IsTakenByThePlugin(const std::string& text) {
  for (const char* const word : {"\"qw\"", "\"httprequest\"", "\"getproxyforurl\""}) {
    if (text.find(word) != std::string::npos) return true;
  }
  const std::optional<Json::Value> message = ParseMessage(text);
  return message && (*message)[0].asString().starts_with("mpbp-");
}

TEST_F(StandinEngineTest, WhatThePluginWouldActOnComesBackInQuotesWhateverBringsIt) {
  StartEngine();
  const auto plugin = Link();
  const std::string texts[] = {
      R"(["httprequest",1,{"host":"127.0.0.1","path":"/","port":1,"proto":"http","verb":"GET"}])",
      R"(["echo","getproxyforurl"])",
      R"(["slow",1,{"httprequest":1}])",
      R"(["slow","malformed","qw"])",
      R"(no JSON "httprequest" either)",
      "\xEF\xBB\xBF [ /* \\*/ \"mpbp-start-remoting\",\"a\"]",
      R"(["mpbp\u002dstop-remoting","a"])",
      R"(["\u006Dpbp-request-permission","1",0,1] and more)",
      R"(["mpbp-start-remoting","a")",
      R"([["mpbp-start-remoting","a"]])",
  };
  for (const std::string& text : texts) {
    const std::string echo = Ask(*plugin, text);
    EXPECT_FALSE(IsTakenByThePlugin(echo)) << echo;
    EXPECT_EQ(ParseMessage(echo).value_or(Json::nullValue), MakeMessage("echo-quoted", text));
  }
  for (const std::string text : {R"(["say httprequest and qwerty"])", R"(["mpbp-","qw "])"}) {
    EXPECT_EQ(Ask(*plugin, text), text);
  }
  // Words within what is told about answers, the page's and a fetched page's.
  const std::string id = AskParsed(*plugin, R"(["ask-http","GET","http://h/"])")[1].asString();
  const std::string proxy_id = AskParsed(*plugin, R"(["ask-proxy","qw"])")[1].asString();
  const std::string tag = AskParsed(*plugin, R"(["ask-permission",0])")[3].asString();
  Ask(*plugin, R"(["remoting-begin","getproxyforurl"])");
  const std::string answers[] = {
      R"(["httpresponse",)" + id + R"(,{"qw":1},"[\"httprequest\"]",["getproxyforurl"]])",
      R"(["proxyforurl",)" + proxy_id + R"(,"httprequest"])",
      R"(["mpbp-request-permission-result",0,")" + tag + "\"," + tag + R"(,["httprequest"]])",
      R"(["mpbp-terminate-remoting-event","","getproxyforurl"])",
      R"(["httpresponse",1,"httprequest"])"};
  for (const std::string& answer : answers) {
    const std::string told = Ask(*plugin, answer);
    EXPECT_FALSE(IsTakenByThePlugin(told)) << told;
    EXPECT_THAT(ParseMessage(told).value_or(Json::nullValue)[0].asString(),
                testing::AnyOf("http-result", "proxy-result", "permission-result", "remoting-ended",
                               "unasked"));
  }
}

TEST_F(StandinEngineTest, MisbehavesAsTold) {
  StartEngine("mute-handshake");
  auto plugin = Connect();
  // Another, whose handshake would be over by now, is not answered either.
  Connect();
  Drain();
  EXPECT_THAT(plugin->watcher.events, testing::ElementsAre("port file", "connected"));

  StartEngine("bad-cookie");
  const test::CapturedLog log;
  plugin = Connect();
  EXPECT_TRUE(
      PumpUntil([&] { return log.Contains("Bad cookie response received; ignored!0 |  | "); }));
  EXPECT_FALSE(plugin->socket.authorized());

  StartEngine("no-qw");
  plugin = Connect();
  EXPECT_EQ(Ask(*plugin, "only the echo"), "only the echo");

  for (const std::string mode : {"drop-after-auth", "drop-after-connect"}) {
    StartEngine(mode.c_str());
    plugin = Connect();
    EXPECT_TRUE(PumpUntil([&] { return plugin->watcher.Saw("closed"); })) << mode;
    EXPECT_EQ(plugin->watcher.Saw("authorized"), mode == "drop-after-auth") << mode;
  }
  const ScopedEnv idle("MURMEL_ENGINE_IDLE_SECONDS", "1");
  for (const std::string mode : {"exit-at-once", "no-port-file", "no-such-mode"}) {
    StartEngine(mode.c_str());
    bool seen = false;
    ASSERT_TRUE(PumpUntil([&] {
      seen = seen || test::FileMode(PortFile()) != -1;
      return engine_->Ended();
    })) << mode;
    EXPECT_EQ(engine_->status != 0, mode == "no-such-mode") << mode;
    EXPECT_FALSE(seen) << mode;
  }
}

TEST(EnginePiecesTest, UrlsAndSwitchesAreKnownOrRefused) {
  const auto joined = [](const char* url) {
    const auto parts = ParseUrl(url).value_or(UrlParts{"", "", 0, ""});
    return parts.proto + " " + parts.host + " " + std::to_string(parts.port) + " " + parts.path;
  };
  EXPECT_EQ(joined("https://host.example/a/b?c=d"), "https host.example 443 /a/b?c=d");
  EXPECT_EQ(joined("HTTP://h:8080"), "HTTP h 8080 /");
  EXPECT_EQ(joined("http://[::1]:81/x#part"), "http [::1] 81 /x");
  EXPECT_EQ(joined("http://h?q:1"), "http h 80 /?q:1");
  for (const char* const url : {"", "host", "ftp://h/", "http://", "http://:80/", "http://h:/",
                                "http://h:0/", "http://h:65536/", "http://h:8x/", "http://u@h/",
                                "http://u:p@h/", "http://[::1/", "http://[::1]x/"}) {
    EXPECT_FALSE(ParseUrl(url)) << url;
  }
  EXPECT_EQ(ModeFromName("Bad-Cookie"), std::nullopt);
  EXPECT_EQ(IdleSecondsFromText(""), kDefaultIdleSeconds);
  for (const char* const text : {"0", "-1", "86401", "1s", " 1", "99999999999999999999"}) {
    EXPECT_EQ(IdleSecondsFromText(text), std::nullopt) << text;
  }
}

TEST(EnginePiecesTest, WordsOfThePluginStandAsTheyAreAtTheBeginningOnly) {
  const Json::Value message =
      MakeMessage("httprequest", "httprequest", R"("getproxyforurl" \"qw\" httprequest)", "qwerty");
  const std::string text = WriteMessage(message);
  EXPECT_EQ(text, R"(["httprequest","\u0068ttprequest","\"\u0067etproxyforurl\" \\\"\u0071w\\\" )"
                  R"(httprequest","qwerty"])");
  EXPECT_EQ(ParseMessage(text), message);
  // Many words take no longer than many letters.
  std::string many;
  while (many.size() < 4'000'000) many += "\"qw\"";
  EXPECT_EQ(WriteMessage(MakeMessage("", many)).size(), 5 + many.size() / 4 * 11 + 2);
}

}  // namespace
}  // namespace mpbp::engine
