// The real module in the page host, with an application data folder of the test's own.
#ifndef MPBP_TESTS_PPAPI_MODULE_FIXTURE_H_
#define MPBP_TESTS_PPAPI_MODULE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/threadmanager.h"
#include "host/host.h"
#include "tests/support/fake_engine.h"
#include "tests/support/scoped_env.h"

namespace mpbp::test {

constexpr int kDeadlineMs = 30000;
constexpr char kPageUrl[] = "https://www.murmel.example/page";
constexpr char kReady[] = "[\"f-ready\"]";
constexpr char kDead[] = "[\"f-dead\"]";
constexpr char kKilled[] = "[\"f-killed\"]";

class ModuleTest : public testing::Test {
 protected:
  void TearDown() override {
    page_.reset();
    host_.Unload();
    EXPECT_THAT(host_.Misuse(), testing::IsEmpty());
    EXPECT_EQ(host_.leaked(), 0u) << testing::PrintToString(host_.LeakedVars())
                                  << testing::PrintToString(host_.LeakedResources());
  }

  void Load() {
    const auto error = host_.Load(MPBP_MODULE_PATH);
    ASSERT_FALSE(error) << *error;
  }
  // A page whose texts end up in texts_ once it listens.
  void CreatePage(const std::string& url = kPageUrl) {
    if (!host_.loaded()) Load();
    page_ = host_.CreatePage(url);
  }
  host::Thrown Listen() {
    return page_
        ->SetOnMessage([this](const std::string& text) {
          texts_.push_back(text);
          if (on_text_) on_text_(text);
        })
        .exception;
  }
  virtual bool RunUntil(const std::function<bool()>& done, int ms = kDeadlineMs) {
    return host_.RunUntil(done, ms);
  }
  size_t CountTexts(const std::string& text) const {
    return static_cast<size_t>(std::count(texts_.begin(), texts_.end(), text));
  }
  bool RunUntilText(const std::string& text, size_t count = 1) {
    return RunUntil([&] { return CountTexts(text) >= count; });
  }
  std::string Version() {
    const host::Value version = page_->Get("version").value;
    const auto* const text = std::get_if<std::string>(&version);
    return text ? *text : "none";
  }
  std::string Log() const { return ReadFile(app_data_.folder() + "mpbppapiplugin.log"); }

  ScopedAppData app_data_;
  host::Host host_;
  std::shared_ptr<host::Page> page_;
  std::vector<std::string> texts_;
  std::function<void(const std::string&)> on_text_;
};

// With an engine of the test's own, on a thread object of the test's own, served along with the
// page's main loop.
class FakeEngineTest : public ModuleTest {
 protected:
  FakeEngineTest() : thread_(ThreadManager::Instance().WrapCurrentThread()) {
    engine_ = std::make_unique<FakeEngine>();
  }
  ~FakeEngineTest() override {
    engine_.reset();
    ThreadManager::Instance().UnwrapCurrentThread();
  }
  bool RunUntil(const std::function<bool()>& done, int ms = kDeadlineMs) override {
    return host_.RunUntil(
        [&] {
          thread_->ProcessMessages(0);
          return done();
        },
        ms);
  }
  // Up to "f-ready"; what the page and the engine received before is forgotten.
  void ConnectPage(const std::string& url = kPageUrl) {
    texts_.clear();
    CreatePage(url);
    ASSERT_EQ(Listen(), std::nullopt);
    ASSERT_TRUE(RunUntilText(kReady));
    texts_.clear();
    engine_->received.clear();
  }

  std::unique_ptr<Thread> thread_;
  std::unique_ptr<FakeEngine> engine_;
};

// The services that the engine gets from the module.
class ServiceTest : public FakeEngineTest {
 protected:
  ServiceTest() { WriteOptions(""); }

  // No engine is ever started: there is none in the folder.
  void WriteOptions(const std::string& more) {
    app_data_.WriteOptions("install_dir=" + app_data_.dir() / "no-engine" + "/\n" + more);
  }

  // Loads the module into such a browser and opens a page.
  void Start(const host::HostOptions& options = {}, const std::string& url = kPageUrl) {
    host_.options() = options;
    ConnectPage(url);
  }
  // Unloads the module, which must not have left or misused anything.
  void End() { TearDown(); }

  // Sends the texts, and waits until the engine has received `count` texts more.
  std::vector<std::string> Ask(const std::vector<std::string>& texts, size_t count) {
    engine_->received.clear();
    for (const std::string& text : texts) engine_->Send(text);
    EXPECT_TRUE(RunUntil([&] { return engine_->received.size() >= count; }));
    return engine_->received;
  }
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_PPAPI_MODULE_FIXTURE_H_
