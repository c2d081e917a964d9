// The module as a browser loads it, with a page on one side and an engine of the test's own on the
// other; the services that the engine gets from it are tried from end to end.
#ifndef MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_
#define MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/thread.h"
#include "base/timeutils.h"
#include "host/host.h"
#include "tests/support/fake_engine.h"
#include "tests/support/scoped_env.h"

namespace mpbp::test {

constexpr int kServiceDeadlineMs = 30000;

class ServiceTest : public testing::Test {
 protected:
  ServiceTest() : thread_(ThreadManager::Instance().WrapCurrentThread()) {
    WriteOptions("");
    engine_ = std::make_unique<FakeEngine>();
  }
  ~ServiceTest() override {
    End();
    engine_.reset();
    ThreadManager::Instance().UnwrapCurrentThread();
  }

  // No engine is ever started: there is none in the folder.
  void WriteOptions(const std::string& more) {
    app_data_.WriteOptions("install_dir=" + app_data_.dir() / "no-engine" + "/\n" + more);
  }

  // Loads the module into such a browser and opens a page.
  void Start(const host::HostOptions& options = {}) {
    host_ = std::make_unique<host::Host>(options);
    host_->options().connect_timeout_ms = kServiceDeadlineMs;
    ASSERT_EQ(host_->Load(MPBP_MODULE_PATH), std::nullopt);
    OpenPage();
  }
  // Up to "f-ready"; what the page and the engine received before is forgotten.
  void OpenPage() {
    page_ = host_->CreatePage("https://www.murmel.example/");
    page_->SetOnMessage([this](const std::string& text) { page_texts_.push_back(text); });
    ASSERT_TRUE(RunUntil([this] { return PageGot("[\"f-ready\"]"); }));
    page_texts_.clear();
    engine_->received.clear();
  }
  // Unloads the module, which must not have left or misused anything.
  void End() {
    if (!host_) return;
    page_.reset();
    host_->Unload();
    EXPECT_THAT(host_->Misuse(), testing::IsEmpty());
    EXPECT_THAT(host_->LeakedVars(), testing::IsEmpty());
    EXPECT_THAT(host_->LeakedResources(), testing::IsEmpty());
    EXPECT_EQ(host_->leaked(), 0u);
    host_.reset();
  }

  // Serves the browser and the engine until `done`; false when it took too long.
  bool RunUntil(const std::function<bool()>& done) {
    constexpr int kRoundMs = 5;
    const uint32_t end = TimeAfter(kServiceDeadlineMs);
    while (!done()) {
      if (!TimeIsLater(Time(), end)) return false;
      thread_->ProcessMessages(0);
      host_->RunOnce(kRoundMs);
    }
    return true;
  }
  bool PageGot(const std::string& text) const {
    return std::find(page_texts_.begin(), page_texts_.end(), text) != page_texts_.end();
  }

  // Sends the texts, and waits until the engine has received `count` texts more.
  std::vector<std::string> Ask(const std::vector<std::string>& texts, size_t count) {
    engine_->received.clear();
    for (const std::string& text : texts) engine_->Send(text);
    EXPECT_TRUE(RunUntil([&] { return engine_->received.size() >= count; }));
    return engine_->received;
  }

  // The module's log file.
  std::string Log() const { return ReadFile(app_data_.folder() + "mpbppapiplugin.log"); }

  std::unique_ptr<Thread> thread_;
  ScopedAppData app_data_;
  std::unique_ptr<FakeEngine> engine_;
  std::unique_ptr<host::Host> host_;
  std::shared_ptr<host::Page> page_;
  std::vector<std::string> page_texts_;
};

// A JSON string of these bytes as an engine writes it: those above 127 as they are.
inline std::string Quoted(const std::string& bytes) {
  std::string text = "\"";
  for (const char c : bytes) {
    if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\') {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      text += escape;
    } else {
      text += c;
    }
  }
  return text + "\"";
}

inline Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::string errors;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors;
  return value;
}

}  // namespace mpbp::test

#endif  // MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_
