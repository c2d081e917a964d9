// The option "prompt_delivery": a thread of the module's own sees to it that links are served.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

class PromptDeliveryTest : public FakeEngineTest {
 protected:
  PromptDeliveryTest() { app_data_.WriteOptions("prompt_delivery=1\n"); }

  // Of this process: one from the start of the first link to the end of the last page.
  static int CountWatchers() {
    int watchers = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
      watchers += ReadFile(thread.path() / "comm") == "mpbp-watcher\n" ? 1 : 0;
    }
    return watchers;
  }
  // With nothing but the watcher to serve the link.
  void ConnectWithoutPump() {
    host_.options().no_timers = true;
    ConnectPage();
  }
  void SendFromEngine(const std::string& text) {
    engine_->Send(text);
    thread_->ProcessMessages(0);
  }
};

TEST_F(PromptDeliveryTest, ServesTheLinkWithoutThePump) {
  ConnectWithoutPump();
  ASSERT_TRUE(RunUntil([] { return CountWatchers() == 1; }));  // it names itself
  const std::string large(3'000'000, 'x');
  for (const std::string& text : {std::string("[1]"), large}) {
    EXPECT_EQ(page_->Send(text).exception, std::nullopt);
    ASSERT_TRUE(RunUntil([&] { return !engine_->received.empty(); }));
    EXPECT_EQ(engine_->received.back(), text);
    engine_->received.clear();
    engine_->Send(text);
    ASSERT_TRUE(RunUntilText(text));
  }
  // Timers: an engine that spoke is started again after a second.
  engine_->Send("[\"qw\"]");
  ASSERT_TRUE(RunUntilText("[\"qw\"]"));
  engine_->DropLink();
  ASSERT_TRUE(RunUntilText(kReady));
  page_->DestroyInstance();
  EXPECT_EQ(CountWatchers(), 0);
}

TEST_F(PromptDeliveryTest, IsOffByDefaultAndSharedByPages) {
  app_data_.WriteOptions("");
  ConnectPage();
  EXPECT_EQ(CountWatchers(), 0);
  app_data_.WriteOptions("prompt_delivery=1\n");
  const std::shared_ptr<host::Page> first = page_;
  ConnectPage();
  const std::shared_ptr<host::Page> second = page_;
  ConnectPage();
  ASSERT_TRUE(RunUntil([] { return CountWatchers() == 1; }));
  page_->DestroyInstance();
  EXPECT_EQ(CountWatchers(), 1);
  second->DestroyInstance();
  EXPECT_EQ(CountWatchers(), 0);
  first->DestroyInstance();
}

TEST_F(PromptDeliveryTest, AForkedChildThatExitsDoesNotEndIt) {
  ConnectWithoutPump();
  const pid_t child = fork();
  if (child == 0) exit(0);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  engine_->Send("[1]");
  ASSERT_TRUE(RunUntilText("[1]"));
  EXPECT_EQ(CountWatchers(), 1);
}

TEST_F(PromptDeliveryTest, AsksOnceHoweverLongTheMainThreadIsBusy) {
  ConnectWithoutPump();
  host_.RunFor(50);
  for (int i = 0; i < 100; ++i) {
    SendFromEngine("[1]");
    usleep(1000);
  }
  EXPECT_LE(host_.loop().pending(), 1u);
  ASSERT_TRUE(RunUntilText("[1]", 100));
}

TEST_F(PromptDeliveryTest, ANestedLoopIsNotServedAndWhatCameMeanwhileIsDeliveredAfterIt) {
  ConnectWithoutPump();
  int depth = 0;
  int rounds = 0;
  on_text_ = [&](const std::string&) {
    EXPECT_EQ(++depth, 1);
    SendFromEngine("[2]");
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (std::chrono::steady_clock::now() < end) rounds += host_.RunOnce(10) ? 1 : 0;
    --depth;
    on_text_ = nullptr;
  };
  engine_->Send("[1]");
  ASSERT_TRUE(RunUntilText("[2]"));
  EXPECT_LE(rounds, 2);
}

TEST_F(PromptDeliveryTest, ThePageMayEndItFromItsCallbackAndBeginAgain) {
  ConnectWithoutPump();
  on_text_ = [&](const std::string&) { page_->DestroyInstance(); };
  engine_->Send("[1]");
  ASSERT_TRUE(RunUntil([&] { return !page_->has_plugin(); }));
  EXPECT_EQ(CountWatchers(), 0);
  on_text_ = nullptr;
  ConnectPage();
  on_text_ = [&](const std::string& text) {
    if (text != "[1]") return;
    EXPECT_EQ(page_->Send("[\"kill\",false]").exception, std::nullopt);
    EXPECT_EQ(Listen(), std::nullopt);  // on another wrapped thread
  };
  texts_.clear();
  engine_->Send("[1]");
  ASSERT_TRUE(RunUntilText(kReady));
  ASSERT_TRUE(RunUntil([] { return CountWatchers() == 1; }));
}

}  // namespace
}  // namespace mpbp::test
