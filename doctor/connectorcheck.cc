// connector: started as a browser starts it, with one page's link.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/stringutils.h"
#include "doctor/checks.h"
#include "doctor/files.h"
#include "doctor/programs.h"
#include "jsontext.h"
#include "plugin/mpbp/common/version.h"

namespace mpbp::doctor {
namespace {

constexpr int kVersionMs = 5000;
constexpr int kAnswerMs = 5000;
constexpr uint32_t kMaxFrame = 1 << 20;  // what browsers take
constexpr char kInstall[] = "Install the plug-in's package again, both from the same release.";

// The browser's end of its pipes: four bytes of length in the host's order, then JSON.
class BrowserSide {
 public:
  explicit BrowserSide(Program program) : program_(std::move(program)), deadline_(kAnswerMs) {}

  // It fits a pipe's buffer, so this does not wait.
  bool Write(const char* type, const char* name = nullptr, const Json::Value& value = {}) {
    Json::Value message(Json::objectValue);
    message["type"] = type;
    if (strcmp(type, "hello") != 0) message["link"] = 1;
    if (name) message[name] = value;
    const std::string json = WriteJson(message);
    const auto length = static_cast<uint32_t>(json.size());
    std::string frame(reinterpret_cast<const char*>(&length), sizeof(length));
    frame += json;
    return write(program_.input.get(), frame.data(), frame.size()) ==
           static_cast<ssize_t>(frame.size());
  }

  // The next object; nothing at the end, or when the time is up.
  std::optional<Json::Value> Read() {
    const std::string head = ReadBytes(program_.output, sizeof(uint32_t), deadline_);
    uint32_t length = 0;
    if (head.size() < sizeof(length)) return std::nullopt;
    memcpy(&length, head.data(), sizeof(length));
    if (length > kMaxFrame) return std::nullopt;
    return ParseJson(ReadBytes(program_.output, length, deadline_));
  }

  // Ends the connector's input, and waits for it.
  std::optional<int> End() {
    program_.input.Reset();
    ReadBytes(program_.output, kMaxFrame, deadline_);
    return WaitForEnd(program_.pid, deadline_);
  }

 private:
  Program program_;
  const Deadline deadline_;
};

CheckResult TryLink(const std::string& path) {
  int error = 0;
  auto program = StartProgram(path, {"chrome-extension://doctor/"}, true, "", &error);
  if (!program) return Fault(path + " cannot be run: " + ErrorText(error), kInstall);
  BrowserSide browser(std::move(*program));
  browser.Write("hello", "version", PluginVersion());
  const auto hello = browser.Read();
  if (!hello || AsString(MemberOf(*hello, "type")) != "hello") {
    return Fault(path + " does not answer a browser's first message within 5 seconds", kInstall);
  }
  browser.Write("open", "origin", "https://" + FirstServedHost());
  browser.Write("start");
  const auto answer = browser.Read();
  const std::string type = answer ? AsString(MemberOf(*answer, "type")).value_or("") : "";
  if (type != "text") {
    return Fault(path + " does not answer a page's link" + (type.empty() ? "" : ": " + type),
                 "See mpbpconnector.log for what it says.");
  }
  const auto status = browser.End();
  if (status != 0) {
    return Fault(path + " " + (status ? EndText(*status) : "does not end") +
                     " when its input ends; browsers leave it behind then",
                 kInstall);
  }
  return {};
}

}  // namespace

std::string ProgramVersion(const std::string& program) {
  int error = 0;
  const auto started = StartProgram(program, {"--version"}, true, "", &error);
  if (!started) return {};
  const Deadline deadline(kVersionMs);
  const std::string text = ReadBytes(started->output, 256, deadline);
  WaitForEnd(started->pid, deadline);
  return std::string(TrimWhitespace(text));
}

CheckResult CheckConnector(const Setup& setup, PrivateFolder& folder) {
  const std::string& path = setup.connector;
  if (path.empty()) {
    return Fault(std::string(kConnectorName) + " is not beside this program",
                 "Install the plug-in's package, or say --connector FILE.");
  }
  if (!MayAccess(path, X_OK)) {
    const int error = errno;
    return Fault(path + " may not be run: " + ErrorText(error),
                 error == EACCES ? "chmod a+x " + path : std::string(kInstall));
  }
  if (!folder.Make(setup)) return Skipped(folder.error());
  const std::string version = ProgramVersion(path);
  if (version != PluginVersion()) {
    return Fault(path + (version.empty() ? " does not say its version"
                                         : " is of version " + version + ", this program of " +
                                               PluginVersion()),
                 kInstall);
  }
  CheckResult result = TryLink(path);
  if (result.message.empty()) {
    result.AddOk(path + ", version " + version + ", answers a page's link");
  }
  return result;
}

}  // namespace mpbp::doctor
