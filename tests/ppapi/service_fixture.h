// The module as a browser loads it, with a page on one side and an engine of the test's own on the
// other; the services that the engine gets from it are tried from end to end.
#ifndef MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_
#define MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_

#include <string>
#include <vector>

#include "jsontext.h"
#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {

class ServiceTest : public FakeEngineTest {
 protected:
  ServiceTest() { WriteOptions(""); }

  // No engine is ever started: there is none in the folder.
  void WriteOptions(const std::string& more) {
    app_data_.WriteOptions("install_dir=" + app_data_.dir() / "no-engine" + "/\n" + more);
  }

  // Loads the module into such a browser and opens a page.
  void Start(const host::HostOptions& options = {}) {
    host_.options() = options;
    ConnectPage();
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

inline Json::Value Parsed(const std::string& text) {
  const std::optional<Json::Value> value = ParseJson(text);
  EXPECT_TRUE(value) << text;
  return value.value_or(Json::Value());
}

}  // namespace mpbp::test

#endif  // MPBP_TESTS_PPAPI_SERVICE_FIXTURE_H_
