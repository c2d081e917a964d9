#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

const std::string kHost = HOST_PROGRAM " --module " TEST_MODULE;

struct Ended {
  int code;
  std::string output;  // both streams
};

// Runs a shell's command line to its end.
Ended RunShell(const std::string& command) {
  FILE* const pipe = popen(("exec 2>&1; " + command).c_str(), "r");
  std::string output;
  for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) output += static_cast<char>(c);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(HostProgram, TheCommandLineIsChecked) {
  const struct {
    std::string arguments;
    int code;
    std::string output;
  } rows[] = {
      {"--help 2>/dev/null", 0, "usage: mpbp-host"},
      {"--verbose 2>&1 >/dev/null", 2, "unknown argument \"--verbose\""},
      {"--url", 2, "--url needs a value"},
      {"--permission maybe", 2, "--permission does not take \"maybe\""},
      {"--linger -1", 2, "--linger does not take \"-1\""},
      {"--module /none.so", 1, "mpbp-host: cannot read /none.so: No such file or directory\n"},
      {"--module /dev/null", 1, "cannot load /dev/null"},
      {"--module /lib/x86_64-linux-gnu/libm.so.6", 1, "has no entry point PPP_InitializeModule"},
  };
  for (const auto& row : rows) {
    const Ended ended = RunShell(kHost + " " + row.arguments + " </dev/null");
    EXPECT_EQ(ended.code, row.code) << row.arguments;
    EXPECT_THAT(ended.output, HasSubstr(row.output));
  }
}

TEST(HostProgram, CommandsAreTakenInTurnAndFaultsCountedAtTheEnd) {
  const Ended ended = RunShell(
      "printf '/wait 0.05\\nhello\\n/clear\\n/destroy\\n/create\\n/event "
      "1\\n/nonsense\\n/event' | " +
      kHost + " --linger 0.05");
  EXPECT_EQ(ended.code, 0) << ended.output;
  EXPECT_THAT(ended.output, ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} exception: send "
                                          "is not a function\n"));
  for (const char* line : {"no remoting session was started", "there is no command /nonsense",
                           "/event needs a whole number", "references leaked: 0, misuses: 0\n"}) {
    EXPECT_THAT(ended.output, HasSubstr(line));
  }
  const Ended faulty = RunShell("printf '/props\\n/quit\\n' | " + kHost);
  EXPECT_EQ(faulty.code, 1);
  EXPECT_THAT(faulty.output, HasSubstr("references leaked: 0, misuses: 1\nmisuse: "));
}

TEST(HostProgram, ASignalEndsItCleanly) {
  const mpbp::test::TempDir dir;
  // Its input stays open; it is signalled once it has answered.
  const Ended ended =
      RunShell("cd " + dir.path() + " && mkfifo in && { " + kHost +
               " <in >out & } && exec 3>in && echo hello >&3 && for i in $(seq 500); do "
               "grep -q exception out && break; sleep .02; done; "
               "kill -TERM $!; wait $!; code=$?; cat out; exit $code");
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output, HasSubstr("references leaked: 0, misuses: 0"));
}

}  // namespace
