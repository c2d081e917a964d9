#include "enginecheck/trial.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "messagesocket.h"
#include "portfileutils.h"

namespace mpbp::enginecheck {
namespace {

constexpr int kWholeFileMs = 2'000;
constexpr size_t kPortFileSize = kPortFilePortSize + kPortFileCookieSize;
constexpr int kDyingMs = 1'000;
constexpr int kMaxPort = 65'535;
// Port 9, of the discard protocol, and a cookie.
constexpr char kOldPortFile[] = "\x09\0\0\0of-another-start";

bool IsSameFile(const std::string& path, int fd) {
  struct stat named {};
  struct stat open {};
  return stat(path.c_str(), &named) == 0 && fstat(fd, &open) == 0 && named.st_ino == open.st_ino &&
         named.st_dev == open.st_dev;
}

// Waits a little for who writes the file before listening: that is another problem than nobody.
std::string WhoListens(int port) {
  const Deadline deadline(kCookieMs);
  int error = 0;
  if (EngineLink::Connect(INADDR_LOOPBACK, port, &error)) return "";
  do {
    if (EngineLink::Connect(INADDR_LOOPBACK, port, &error)) {
      return "the file was there before the engine listened";
    }
  } while (!deadline.PassedAfterPause());
  return "nobody listens on 127.0.0.1 at its port " + std::to_string(port) + " (" +
         strerror(error) + ")";
}

}  // namespace

Trial::Trial(std::string program, std::vector<std::string> words)
    : program_(std::move(program)), words_(std::move(words)) {
  AdoptOrphans();
}

Trial::~Trial() {
  engine_.reset();
  EndAllChildren();
}

CheckResult Trial::Blocked(const std::string& check, const std::string& message,
                           const std::string& remedy) {
  if (blocked_.insert(check).second) return Fault(message, remedy);
  return Skipped("it needs what " + check + " looks at");
}

bool Trial::Needs(const std::string& check, CheckResult* blocked) const {
  if (!blocked_.contains(check)) return false;
  *blocked = Skipped("it needs what " + check + " looks at");
  return true;
}

bool Trial::LeaveOldPortFile() {
  if (old_port_file_) return true;
  if (!folder_.ReplacePortFile({kOldPortFile, kPortFileSize})) return false;
  old_port_file_ = UniqueFd(open(folder_.PortFile().c_str(), O_RDONLY | O_CLOEXEC));
  return static_cast<bool>(old_port_file_);
}

EngineProcess* Trial::Engine(CheckResult* blocked) {
  if (engine_ && !engine_->Ended()) return engine_.get();
  engine_.reset();
  if (start_problem_.empty() && (folder_.path().empty() || !LeaveOldPortFile())) {
    start_problem_ = std::string("There is no temporary folder: ") + strerror(errno);
  }
  if (start_problem_.empty()) {
    const std::string before = folder_.ReadPortFile();
    std::unique_ptr<EngineProcess> engine = StartAnother(blocked);
    if (!engine) return nullptr;
    if (Await(std::move(engine), before, &start_problem_)) return engine_.get();
  }
  *blocked = Blocked("start", start_problem_, "See \"The life of an engine\" in docs/engine.md.");
  return nullptr;
}

std::unique_ptr<EngineProcess> Trial::StartAnother(CheckResult* blocked) {
  int error = 0;
  std::unique_ptr<EngineProcess> engine =
      EngineProcess::Start(program_, folder_.Environment(), &error);
  if (engine) return engine;
  start_problem_ = program_ + " cannot be executed: " + strerror(error);
  *blocked = Blocked("start", start_problem_,
                     "It must be a program for this machine with the mode of one (chmod +x); what "
                     "a script's \"#!\" names must be there.");
  return nullptr;
}

bool Trial::Await(std::unique_ptr<EngineProcess> engine, const std::string& before,
                  std::string* problem) {
  const Deadline deadline(kStartMs);
  std::optional<Deadline> whole;  // from when on something stands in the file
  std::string content = folder_.ReadPortFile();
  while (content == before || content.size() < kPortFileSize) {
    if (!whole && content != before && !content.empty()) whole.emplace(kWholeFileMs);
    if (whole && whole->Passed()) break;
    const bool ended = engine->Ended();
    if (ended || deadline.PassedAfterPause()) {
      *problem = ended ? "The engine ended " + engine->HowItEnded() + " and wrote no port file"
                       : "After " + std::to_string(kStartMs / 1000) +
                             " seconds there is no port file in $XDG_CONFIG_HOME/murmel-"
                             "murmelparlplugin";
      const std::string output = engine->Output();
      if (!output.empty()) *problem += "; it printed: " + output;
      return false;
    }
    content = folder_.ReadPortFile();
  }
  Start start;
  start.ms = deadline.Elapsed();
  start.port_file = content;
  start.written_in_place = IsSameFile(folder_.PortFile(), old_port_file_.get());
  ReadAddress(&start);
  starts_.push_back(std::move(start));
  engine_ = std::move(engine);
  return true;
}

void Trial::ReadAddress(Start* start) const {
  const std::string& content = start->port_file;
  if (content.size() < kPortFileSize) {
    start->form_problem = "it has " + std::to_string(content.size()) + " bytes, less than the " +
                          std::to_string(kPortFileSize) + " of port and cookie";
    return;
  }
  int32_t port = 0;
  memcpy(&port, content.data(), sizeof(port));
  if (port < 1 || port > kMaxPort) {
    start->form_problem = "its first four bytes give the port " + std::to_string(port) +
                          " in the byte order of this machine";
    return;
  }
  start->form_problem = WhoListens(port);
  start->address.port = port;
  start->address.cookie = content.substr(kPortFilePortSize, kPortFileCookieSize);
}

std::optional<EngineLink> Trial::Connect(CheckResult* blocked) {
  if (Needs("port-file-form", blocked)) return std::nullopt;
  // One that a check has brought to its end may be about to end: then another one is started.
  for (const bool last : {false, true}) {
    if (!Engine(blocked)) return std::nullopt;
    int error = 0;
    const int port = start().address.port;
    std::optional<EngineLink> link;
    if (port != 0) link = EngineLink::Connect(INADDR_LOOPBACK, port, &error);
    if (link) return link;
    if (last || !engine_->WaitForEnd(Deadline(kDyingMs))) break;
  }
  *blocked = Blocked("port-file-form", "No connection could be made to the port of the port file",
                     "See \"Port file\" in docs/wire-format.md.");
  return std::nullopt;
}

std::optional<EngineLink> Trial::Authorize(CheckResult* blocked) {
  if (Needs("cookie", blocked)) return std::nullopt;
  std::optional<EngineLink> link = Connect(blocked);
  std::string problem;
  if (!link || Handshake(*link, &problem)) return link;
  *blocked = Blocked("cookie", problem,
                     "Answer a frame of type 1 with one of type 3 that holds the same 16 bytes.");
  return std::nullopt;
}

std::optional<EngineLink> Trial::AuthorizeForFrames(CheckResult* blocked) {
  if (Needs("split-frames", blocked) || Needs("joined-frames", blocked)) return std::nullopt;
  return Authorize(blocked);
}

bool Trial::Handshake(EngineLink& link, std::string* problem) {
  const Deadline deadline(kCookieMs);
  const std::string& cookie = start().address.cookie;
  static_cast<void>(link.Write(FrameBytes(MSG_COOKIE, cookie), deadline));  // no answer then
  const std::optional<std::string> response = link.ReadCookieResponse(deadline, nullptr);
  if (response == cookie) return true;
  *problem = response ? "The cookie of the port file was not answered with the same"
                      : "The cookie was not answered: " + WhatHappened(link);
  return false;
}

std::string Trial::WhatHappened(const EngineLink& link) {
  if (!link.closed()) return "nothing came in time";
  if (!engine_ || !engine_->WaitForEnd(Deadline(kDyingMs))) return "it closed the connection";
  return "the engine ended " + engine_->HowItEnded();
}

bool Trial::StillServes() {
  int error = 0;
  std::optional<EngineLink> link =
      EngineLink::Connect(INADDR_LOOPBACK, start().address.port, &error);
  std::string problem;
  return link && Handshake(*link, &problem);
}

bool Trial::Terminate(CheckResult* blocked) {
  EngineProcess* const engine = Engine(blocked);
  if (!engine) return false;
  engine->Signal(SIGTERM);
  if (engine->WaitForEnd(Deadline(kEndMs))) return true;
  *blocked = Blocked("sigterm", "SIGTERM did not end it within ten seconds",
                     "A page's kill sends SIGTERM to ask it to end: remove the port file, then "
                     "end.");
  engine->Kill();
  return false;
}

}  // namespace mpbp::enginecheck
