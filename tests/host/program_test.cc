#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

// A program that was started with its three streams on pipes.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    for (int* fds : {in, out, err}) EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    std::vector<char*> argv;
    std::string name = HOST_PROGRAM;
    argv.push_back(name.data());
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(err[1], 2);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    input_ = in[1];
    output_ = out[0];
    error_ = err[0];
  }
  void Type(const std::string& text) {
    EXPECT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void CloseInput() {
    if (input_ >= 0) close(input_);
    input_ = -1;
  }
  void Signal(int number) { kill(pid_, number); }
  // Waits until the output holds `text`.
  void Expect(const std::string& text) {
    char c = 0;
    while (output.find(text) == std::string::npos && read(output_, &c, 1) == 1) output += c;
    EXPECT_THAT(output, HasSubstr(text));
  }
  int Finish() {
    ReadAll(output_, output);
    ReadAll(error_, error);
    int status = -1;
    EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
    CloseInput();
    close(output_);
    close(error_);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string output;
  std::string error;

 private:
  static void ReadAll(int fd, std::string& text) {
    char buffer[4096];
    for (ssize_t got = read(fd, buffer, sizeof buffer); got > 0;
         got = read(fd, buffer, sizeof buffer)) {
      text.append(buffer, static_cast<size_t>(got));
    }
  }
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int error_ = -1;
};

TEST(HostProgram, HelpGoesToStandardOutput) {
  Program program({"--help"});
  EXPECT_EQ(program.Finish(), 0);
  EXPECT_THAT(program.output, StartsWith("usage: mpbp-host"));
  EXPECT_EQ(program.error, "");
}

TEST(HostProgram, AWrongCommandLineIsRefused) {
  const struct {
    std::vector<std::string> arguments;
    const char* message;
  } cases[] = {{{"--verbose"}, "unknown argument \"--verbose\""},
               {{"--url"}, "--url needs a value"},
               {{"--permission", "maybe"}, "--permission does not take \"maybe\""},
               {{"--linger", "-1"}, "--linger does not take \"-1\""},
               {{"https://www.murmel.example/"}, "unknown argument"}};
  for (const auto& wrong : cases) {
    Program program(wrong.arguments);
    EXPECT_EQ(program.Finish(), 2);
    EXPECT_THAT(program.error, HasSubstr(wrong.message));
    EXPECT_EQ(program.output, "");
  }
}

TEST(HostProgram, AModuleThatIsMissingIsReported) {
  Program program({"--module", "/nonexistent/module.so"});
  EXPECT_EQ(program.Finish(), 1);
  EXPECT_EQ(program.error,
            "mpbp-host: cannot read /nonexistent/module.so: No such file or directory\n");
}

TEST(HostProgram, CommandsAreTakenInTurnUntilTheInputEnds) {
  Program program({"--module", TEST_MODULE, "--linger", "0.05"});
  program.Type("/wait 0.05\n/props\nhello\n/clear\n/destroy\n/create\n/event 1\n/nonsense\n/event");
  program.CloseInput();
  EXPECT_EQ(program.Finish(), 0) << program.output;
  EXPECT_THAT(program.output,
              ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} property: onmessage\n"));
  for (const char* line : {"exception: send is not a function", "no remoting session was started",
                           "there is no command /nonsense", "/event needs a whole number",
                           "references leaked: 0, misuses: 0\n"}) {
    EXPECT_THAT(program.output, HasSubstr(line));
  }
}

TEST(HostProgram, AFaultOfTheModuleIsCountedAtTheEnd) {
  Program program({"--module", TEST_MODULE});
  // Without a listener the module counts its names wrong.
  program.Type("/clear\n/props\n/quit\n");
  EXPECT_EQ(program.Finish(), 1);
  EXPECT_THAT(program.output, HasSubstr("references leaked: 0, misuses: 1\nmisuse: "));
}

TEST(HostProgram, ASignalEndsItCleanly) {
  Program program({"--module", TEST_MODULE});
  program.Type("/props\n");
  program.Expect("property: onmessage");
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Finish(), 0);
  EXPECT_THAT(program.output, HasSubstr("references leaked: 0, misuses: 0"));
}

}  // namespace
