// The stand-in engine as a process of its own, seen from the other end of the link.
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

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

// One running engine; killed at the end.
class EngineProcess {
 public:
  EngineProcess() {
    char name[] = "MurmelParlPlugin";
    char* const argv[] = {name, nullptr};
    EXPECT_EQ(posix_spawn(&pid, MPBP_ENGINE_FILE, nullptr, nullptr, argv, environ), 0);
  }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;
  ~EngineProcess() {
    if (ended) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  bool Ended() { return ended = ended || waitpid(pid, &status, WNOHANG) == pid; }

  pid_t pid = 0;
  int status = 0;
  bool ended = false;
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
      return test::ReadFile(PortFile()).size() == 20 && plugin->socket.Connect(nullptr);
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
    const std::string text = texts.front();
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

TEST_F(StandinEngineTest, ASecondEngineTakesOverThePortFileAndKeepsItWhenTheFirstEnds) {
  StartEngine();
  const auto first_plugin = Link();
  const std::string first_file = test::ReadFile(PortFile());
  const auto first = std::exchange(engine_, std::make_unique<EngineProcess>());
  ASSERT_TRUE(PumpUntil([&] {
    const std::string file = test::ReadFile(PortFile());
    return file.size() == 20 && file != first_file;
  }));
  EXPECT_EQ(Ask(*first_plugin, "still served"), "still served");
  Link();
  kill(first->pid, SIGTERM);
  ASSERT_TRUE(PumpUntil([&] { return first->Ended(); }));
  EXPECT_EQ(test::FileMode(PortFile()), 0600);
  Link();
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

TEST(EnginePiecesTest, WordsThatThePluginActsOnStandAtTheBeginningOnly) {
  const std::string text =
      WriteMessage(MakeMessage("httprequest", "httprequest", "getproxyforurl"));
  EXPECT_EQ(text.rfind("\"httprequest\""), 1u);
  EXPECT_EQ(text.find("\"getproxyforurl\""), std::string::npos);
  EXPECT_EQ(ParseMessage(text).value_or(Json::Value())[2].asString(), "getproxyforurl");
}

}  // namespace
}  // namespace mpbp::engine
