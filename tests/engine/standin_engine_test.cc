// The stand-in engine as a process of its own, seen from the other end of the link.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "engine/json.h"
#include "tests/link/linktest.h"
#include "tests/support/scoped_env.h"

namespace mpbp::engine {
namespace {

using test::LinkWatcher;
using test::ScopedEnv;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// One running engine; killed at the end.
class EngineProcess {
 public:
  EngineProcess() {
    char name[] = "MurmelParlPlugin";
    char* const argv[] = {name, nullptr};
    EXPECT_EQ(posix_spawn(&pid_, MPBP_ENGINE_FILE, nullptr, nullptr, argv, environ), 0);
  }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;
  ~EngineProcess() {
    if (ended_) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
  }
  void Signal(int signum) const { kill(pid_, signum); }
  bool Ended() {
    if (!ended_) ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
    return ended_;
  }
  bool EndedCleanly() const { return ended_ && WIFEXITED(status_) && WEXITSTATUS(status_) == 0; }
  int EndSignal() const { return ended_ && WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
  int status_ = 0;
  bool ended_ = false;
};

// A plug-in, as far as the engine can tell.
class Plugin {
 public:
  Plugin() : watcher_(&socket_) { socket_.set_port_file_path(PortFile()); }
  static std::string PortFile() { return GetPortFilePath(kPluginPortFile).pathname(); }

  PluginMessageSocket& socket() { return socket_; }
  LinkWatcher& watcher() { return watcher_; }
  std::vector<std::string>& texts() { return watcher_.texts; }

 private:
  PluginMessageSocket socket_;
  LinkWatcher watcher_;
};

class StandinEngineTest : public test::LoopTest {
 protected:
  void StartEngine() { engine_ = std::make_unique<EngineProcess>(); }
  // In place of the one that runs.
  void StartEngine(const char* mode) {
    engine_.reset();
    unlink(Plugin::PortFile().c_str());
    const ScopedEnv variable("MURMEL_ENGINE_MODE", mode);
    StartEngine();
  }
  // A plug-in whose connection is made, authorized or not.
  std::unique_ptr<Plugin> Connect() {
    auto plugin = std::make_unique<Plugin>();
    EXPECT_TRUE(PumpUntil([&] {
      return test::ReadFile(Plugin::PortFile()).size() == 20 && plugin->socket().Connect(nullptr);
    }));
    EXPECT_TRUE(PumpUntil([&] { return plugin->watcher().Saw("connected"); }));
    return plugin;
  }
  // The same, with the announcement read.
  std::unique_ptr<Plugin> Link() {
    auto plugin = Connect();
    EXPECT_THAT(Next(*plugin), StartsWith(R"(["qw",{"engine":"stand-in","pid":)"));
    return plugin;
  }
  // The next text of the engine; what comes instead of one is a failure.
  std::string Next(Plugin& plugin) {
    if (!PumpUntil([&] { return !plugin.texts().empty(); })) return "nothing came";
    std::string text = plugin.texts().front();
    plugin.texts().erase(plugin.texts().begin());
    return text;
  }
  std::string Ask(Plugin& plugin, const std::string& text) {
    EXPECT_TRUE(plugin.socket().Send(text));
    return Next(plugin);
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
  for (const std::string& text : {
           std::string("plain"),
           std::string(),
           std::string("[\"unknown\", 1 ]"),
           std::string("[1,2"),
           std::string("\xFF\0\xFE", 3),
           "[" + std::string(5000, '['),
           std::string("[\"echo\",  {\"b\":1, \"a\":2}]"),
           std::string("[\"silent\"]"),
           std::string("[\"silent\",-1]"),
           std::string("[\"slow\",\"5\"]"),
           std::string("[\"slow\",1e300]"),
           std::string("[\"many\",10001,1]"),
           std::string("[\"many\",10000,100000]"),
           std::string("[\"large\",67108865]"),
           std::string("[\"large\",[]]"),
           std::string("[\"ask-http\",\"GET\",\"nowhere\"]"),
           std::string("[\"ask-proxy\"]"),
           std::string("[\"ask-permission\",\"1\"]"),
           std::string("[\"remoting-begin\",{}]"),
           std::string("[\"remoting-stop\"]"),
       }) {
    EXPECT_EQ(Ask(*plugin, text), text);
  }
}

TEST_F(StandinEngineTest, SendsManyLargeAndSlowTexts) {
  StartEngine();
  const auto plugin = Link();
  EXPECT_EQ(Ask(*plugin, "[\"many\",3,2]"), "[\"many\",0,\"xx\"]");
  EXPECT_EQ(Next(*plugin), "[\"many\",1,\"xx\"]");
  EXPECT_EQ(Next(*plugin), "[\"many\",2,\"xx\"]");
  EXPECT_EQ(Ask(*plugin, "[\"large\",3000000]"),
            "[\"large\",\"" + std::string(3'000'000, 'x') + "\"]");
  const uint32_t start = Time();
  ASSERT_TRUE(plugin->socket().Send("[\"slow\",50,\"later\"]"));
  EXPECT_EQ(Ask(*plugin, "at once"), "at once");
  EXPECT_EQ(Next(*plugin), "[\"slow\",50,\"later\"]");
  EXPECT_GE(TimeDiff(Time(), start), 50);
}

TEST_F(StandinEngineTest, GoesSilentForOneClientOnly) {
  StartEngine();
  const auto silent = Link();
  const auto other = Link();
  ASSERT_TRUE(silent->socket().Send("[\"silent\",300]"));
  ASSERT_TRUE(silent->socket().Send("lost"));
  EXPECT_EQ(Ask(*other, "heard"), "heard");
  EXPECT_TRUE(PumpUntil([&] {
    if (silent->texts().empty()) static_cast<void>(silent->socket().Send("again"));
    return !silent->texts().empty();
  }));
  EXPECT_EQ(silent->texts().front(), "again");
}

TEST_F(StandinEngineTest, DropsOneLinkAndKeepsTheOther) {
  StartEngine();
  const auto dropped = Link();
  const auto other = Link();
  ASSERT_TRUE(dropped->socket().Send("[\"drop\"]"));
  EXPECT_TRUE(PumpUntil([&] { return dropped->watcher().Saw("closed"); }));
  EXPECT_EQ(Ask(*other, "still here"), "still here");
}

TEST_F(StandinEngineTest, CrashesAndLeavesItsPortFileBehind) {
  StartEngine();
  const auto plugin = Link();
  ASSERT_TRUE(plugin->socket().Send("[\"crash\"]"));
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(engine_->EndSignal(), SIGABRT);
  EXPECT_TRUE(PumpUntil([&] { return plugin->watcher().Saw("closed"); }));
  EXPECT_EQ(test::FileMode(Plugin::PortFile()), 0600);
}

TEST_F(StandinEngineTest, RemovesItsPortFileHoweverItEndsCleanly) {
  for (const char* const way : {"quit", "term", "int", "idle"}) {
    const ScopedEnv idle("MURMEL_ENGINE_IDLE_SECONDS", way == std::string("idle") ? "1" : "");
    StartEngine();
    auto plugin = Link();
    if (way == std::string("quit")) {
      ASSERT_TRUE(plugin->socket().Send("[\"quit\"]"));
    } else if (way == std::string("idle")) {
      plugin.reset();  // the minute begins when the last one leaves
    } else {
      engine_->Signal(way == std::string("term") ? SIGTERM : SIGINT);
    }
    ASSERT_TRUE(WaitForEnd()) << way;
    EXPECT_TRUE(engine_->EndedCleanly()) << way;
    EXPECT_EQ(test::FileMode(Plugin::PortFile()), -1) << way;
  }
}

TEST_F(StandinEngineTest, ASecondEngineTakesOverThePortFileAndKeepsItWhenTheFirstEnds) {
  StartEngine();
  const auto first_plugin = Link();
  const std::string first_file = test::ReadFile(Plugin::PortFile());
  const std::unique_ptr<EngineProcess> first = std::move(engine_);
  StartEngine();
  ASSERT_TRUE(PumpUntil([&] {
    const std::string file = test::ReadFile(Plugin::PortFile());
    return file.size() == 20 && file != first_file;
  }));
  EXPECT_EQ(Ask(*first_plugin, "still served"), "still served");
  const auto second_plugin = Connect();
  EXPECT_THAT(Next(*second_plugin), HasSubstr("\"pid\":" + std::to_string(engine_->pid()) + ","));
  first->Signal(SIGTERM);
  ASSERT_TRUE(PumpUntil([&] { return first->Ended(); }));
  EXPECT_TRUE(first->EndedCleanly());
  EXPECT_EQ(test::FileMode(Plugin::PortFile()), 0600);
  Link();
  engine_->Signal(SIGTERM);
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(test::FileMode(Plugin::PortFile()), -1);
}

TEST_F(StandinEngineTest, AsksThePluginAndTellsThePageWhatItAnswered) {
  StartEngine();
  const auto plugin = Link();
  const std::string http =
      Ask(*plugin, R"(["ask-http","GET","http://h.example:81/p?q","A: b\n","body"])");
  const std::optional<Json::Value> request = ParseMessage(http);
  ASSERT_TRUE(request) << http;
  const std::string id = std::to_string((*request)[1].asUInt());
  EXPECT_EQ(http, "[\"httprequest\"," + id +
                      R"(,{"host":"h.example","path":"/p?q","port":81,"proto":"http",)" +
                      R"("verb":"GET"},"A: b\n","body"])");
  const std::string answer = "[\"httpresponse\"," + id + ",{\"error\":0},\"HTTP/1.1 200 \"]";
  EXPECT_EQ(Ask(*plugin, answer), "[\"http-result\"," + answer + "]");
  // The same once more answers nothing that was asked.
  EXPECT_THAT(Ask(*plugin, answer), StartsWith(R"(["unasked","[\"httpresponse\",)"));

  const std::string proxy = Ask(*plugin, R"(["ask-proxy","http://h/"])");
  const std::optional<Json::Value> look_up = ParseMessage(proxy);
  ASSERT_TRUE(look_up) << proxy;
  EXPECT_THAT(proxy, StartsWith("[\"getproxyforurl\","));
  EXPECT_EQ((*look_up)[2].asString(), "http://h/");
  EXPECT_EQ(
      Ask(*plugin, "[\"proxyforurl\"," + std::to_string((*look_up)[1].asUInt()) + ",\"DIRECT\"]"),
      R"(["proxy-result","http://h/","DIRECT"])");

  const std::optional<Json::Value> permission =
      ParseMessage(Ask(*plugin, R"(["ask-permission",2])"));
  ASSERT_TRUE(permission);
  EXPECT_EQ((*permission)[0].asString(), "mpbp-request-permission");
  EXPECT_EQ((*permission)[2].asInt(), 2);
  const std::string tag = std::to_string((*permission)[3].asUInt());
  EXPECT_EQ(Ask(*plugin, "[\"mpbp-request-permission-result\",2,\"" + (*permission)[1].asString() +
                             "\"," + tag + ",true]"),
            R"(["permission-result",2,true])");

  EXPECT_EQ(Ask(*plugin, R"(["remoting-begin","s1"])"), R"(["mpbp-start-remoting","s1"])");
  EXPECT_EQ(Ask(*plugin, R"(["mpbp-terminate-remoting-event","","s1"])"),
            R"(["remoting-ended","s1"])");
  EXPECT_THAT(Ask(*plugin, R"(["mpbp-terminate-remoting-event","","s1"])"),
              StartsWith("[\"unasked\","));
  EXPECT_EQ(Ask(*plugin, R"(["remoting-stop","s1"])"), R"(["mpbp-stop-remoting","s1"])");
}

TEST_F(StandinEngineTest, WhatThePluginSaysUnaskedReachesThePageButForComments) {
  StartEngine();
  const auto plugin = Link();
  EXPECT_EQ(Ask(*plugin, "[\"httpresponse\",100,{\"error\":0}]"),
            R"(["unasked","[\"httpresponse\",100,{\"error\":0}]"])");
  for (const char* const text :
       {R"(["proxyforurl"])", R"(["mpbp-request-permission-result",{}])",
        R"(["mpbp-terminate-remoting-event"])", R"(["httpresponse",-1])"}) {
    EXPECT_THAT(Ask(*plugin, text), StartsWith("[\"unasked\",")) << text;
  }
  ASSERT_TRUE(plugin->socket().Send(R"(["comment","JS layer took 1001ms to handle message."])"));
  EXPECT_EQ(Ask(*plugin, "next"), "next");
}

TEST_F(StandinEngineTest, MisbehavesAsTold) {
  {
    StartEngine("mute-handshake");
    const auto plugin = Connect();
    // Another, whose handshake would be over by now, is not answered either.
    const auto later = Connect();
    Drain();
    EXPECT_THAT(plugin->watcher().events, ElementsAre("port file", "connected"));
  }
  {
    StartEngine("bad-cookie");
    const test::CapturedLog log;
    const auto plugin = Connect();
    EXPECT_TRUE(
        PumpUntil([&] { return log.Contains("Bad cookie response received; ignored!0 |  | "); }));
    EXPECT_FALSE(plugin->socket().authorized());
  }
  {
    StartEngine("no-qw");
    const auto plugin = Connect();
    EXPECT_EQ(Ask(*plugin, "only the echo"), "only the echo");
  }
  for (const char* const mode : {"drop-after-auth", "drop-after-connect"}) {
    StartEngine(mode);
    const auto plugin = Connect();
    EXPECT_TRUE(PumpUntil([&] { return plugin->watcher().Saw("closed"); })) << mode;
    EXPECT_EQ(plugin->watcher().Saw("authorized"), mode == std::string("drop-after-auth")) << mode;
  }
}

TEST_F(StandinEngineTest, EndsOrHidesAsTold) {
  StartEngine("exit-at-once");
  ASSERT_TRUE(WaitForEnd());
  EXPECT_TRUE(engine_->EndedCleanly());
  EXPECT_EQ(test::FileMode(Plugin::PortFile()), -1);

  const ScopedEnv idle("MURMEL_ENGINE_IDLE_SECONDS", "1");
  StartEngine("no-port-file");
  bool seen = false;
  ASSERT_TRUE(PumpUntil([&] {
    seen = seen || test::FileMode(Plugin::PortFile()) != -1;
    return engine_->Ended();
  }));
  EXPECT_TRUE(engine_->EndedCleanly());
  EXPECT_FALSE(seen);

  StartEngine("no-such-mode");
  ASSERT_TRUE(WaitForEnd());
  EXPECT_FALSE(engine_->EndedCleanly());
}

}  // namespace
}  // namespace mpbp::engine
