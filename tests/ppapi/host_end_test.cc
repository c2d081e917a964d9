// Hosts that end without PPP_ShutdownModule.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "engineprocesses.h"
#include "tests/support/scoped_env.h"

namespace mpbp::test {
namespace {

class HostEnd : public testing::Test {
 protected:
  void SetUp() override {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    app_data_.WriteOptions("install_dir=" MPBP_ENGINE_FOLDER
                           "\npluginppapi_log_level=LS_VERBOSE\nprompt_delivery=1\n");
  }
  ~HostEnd() override { EndEngines(); }

  // Also one that has just been forked and has not got its name yet.
  void EndEngines() {
    do {
      KillEngineProcesses(true, true);
      usleep(1000);
    } while (waitpid(-1, nullptr, WNOHANG) >= 0 || errno == EINTR);
    std::filesystem::remove(app_data_.folder() + "murmelparlplugin_port");
  }

  ScopedAppData app_data_;
};

TEST_F(HostEnd, IsSilentInEveryStateAndWay) {
  for (const std::string way : {"exit", "quick_exit", "unload"}) {
    for (const std::string state : {"loaded", "page", "launch", "link", "inside", "busy"}) {
      // A file is closed only when nothing of the module is on the stack.
      if (way == "unload" && (state == "inside" || state == "busy")) continue;
      EndEngines();
      const std::string output = app_data_.dir() / "output";
      std::string command = RUDE_HOST " " MPBP_MODULE_PATH " ";
      command.append(state).append(" ").append(way).append(" 2>").append(output);
      const int status = system(command.c_str());
      EXPECT_EQ(status, 0) << command << "\n" << ReadFile(output);
      EXPECT_THAT(ReadFile(output), testing::Not(testing::HasSubstr("Sanitizer"))) << command;
    }
  }
}

}  // namespace
}  // namespace mpbp::test
