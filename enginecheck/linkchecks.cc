// The connection: cookies and frames.
#include <netinet/in.h>

#include <chrono>
#include <thread>

#include "enginecheck/enginechecks.h"
#include "messagesocket.h"

namespace mpbp::enginecheck {
namespace {

constexpr uint32_t kOtherLoopback = INADDR_LOOPBACK + 1;  // 127.0.0.2, of the same interface
constexpr int kClients = 64;
constexpr uint16_t kUnknownTypes[] = {MSG_BINARY, 6, 0, 0x7FFF, 0xFFFF};
constexpr char kHost[] = R"({"url":"https://www.murmel.example/"})";

constexpr char kFramesRemedy[] =
    "Read into a buffer and take out what is whole: six bytes of header, then as many as it says. "
    "See \"Frames\" in docs/wire-format.md.";
constexpr char kCookieRemedy[] = "See \"Handshake\" in docs/wire-format.md.";

// Of the same length.
std::string WrongCookie(const std::string& cookie) {
  std::string wrong = cookie;
  wrong.back() = static_cast<char>(wrong.back() ^ 1);
  return wrong;
}

// What an engine that reads on answers to a further cookie. "" when it does; else what happened.
std::string AwaitCookie(Trial& trial, EngineLink& link) {
  const std::optional<std::string> response = link.ReadCookieResponse(Deadline(kAnswerMs), nullptr);
  if (response == trial.start().address.cookie) return "";
  return response ? "the answer to the cookie was another one" : trial.WhatHappened(link);
}

}  // namespace

CheckResult CheckLoopback(Trial& trial) {
  CheckResult blocked;
  if (!trial.Connect(&blocked)) return blocked;
  int error = 0;
  if (!EngineLink::Connect(kOtherLoopback, trial.start().address.port, &error)) {
    return Ok("it listens on 127.0.0.1 alone");
  }
  return Fault("The engine listens on other addresses than 127.0.0.1: others may reach it",
               "Bind the socket to 127.0.0.1.");
}

CheckResult CheckCookie(Trial& trial) {
  CheckResult blocked;
  const Deadline deadline(kCookieMs);
  std::optional<EngineLink> link = trial.Authorize(&blocked);
  if (!link) return blocked;
  const int elapsed = deadline.Elapsed();
  const std::string& cookie = trial.start().address.cookie;
  static_cast<void>(link->Write(FrameBytes(MSG_COOKIE, cookie), Deadline(kAnswerMs)));
  const std::string problem = AwaitCookie(trial, *link);
  if (problem.empty()) return Ok("answered after " + std::to_string(elapsed) + " ms");
  return trial.Blocked("cookie", "When the cookie was sent a second time: " + problem,
                       "Leave an authorized connection open, and answer each cookie.");
}

CheckResult CheckWrongCookie(Trial& trial) {
  CheckResult blocked;
  if (!trial.AuthorizeForFrames(&blocked)) return blocked;
  std::optional<EngineLink> link = trial.Connect(&blocked);
  if (!link) return blocked;
  const std::string cookie = trial.start().address.cookie;
  const Deadline deadline(kAnswerMs);
  std::vector<std::string> texts;
  for (const std::string& wrong :
       {WrongCookie(cookie), std::string(), cookie.substr(0, 8), cookie + "0"}) {
    static_cast<void>(link->Write(FrameBytes(MSG_COOKIE, wrong), deadline));
    const auto response = link->ReadCookieResponse(deadline, &texts);
    if (!response)
      return Fault("After a wrong cookie: " + trial.WhatHappened(*link), kCookieRemedy);
    if (!response->empty()) return Fault("A wrong cookie was accepted", kCookieRemedy);
  }
  const std::string early = FrameBytes(MSG_HOST_DESCRIPTION, kHost) +
                            FrameBytes(MSG_DATA, "[\"" + trial.words().front() + "\",1]");
  static_cast<void>(link->Write(early + FrameBytes(MSG_COOKIE, cookie), deadline));
  const auto response = link->ReadCookieResponse(deadline, &texts);
  if (response != cookie) {
    return Fault("A right cookie after wrong ones and early texts: " + trial.WhatHappened(*link),
                 "Answer a wrong cookie with an empty response, drop what comes before the right "
                 "one, and leave the connection open.");
  }
  if (texts.empty()) return Ok("answered with nothing, and the connection stays open");
  return Fault("The engine sent a text before the cookie was right", kCookieRemedy);
}

CheckResult CheckSplitFrames(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.Authorize(&blocked);
  if (!link) return blocked;
  const std::string cookie = trial.start().address.cookie;
  const std::string bytes =
      FrameBytes(MSG_HOST_DESCRIPTION, kHost) + FrameBytes(MSG_COOKIE, cookie);
  const Deadline deadline(kAnswerMs);
  for (const char& byte : bytes) {
    static_cast<void>(link->Write({&byte, 1}, deadline));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const std::string problem = AwaitCookie(trial, *link);
  if (problem.empty()) return Ok("two frames, a byte at a time");
  return trial.Blocked("split-frames", "After two frames that came a byte at a time: " + problem,
                       kFramesRemedy);
}

CheckResult CheckJoinedFrames(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.Authorize(&blocked);
  if (!link) return blocked;
  const std::string cookie = trial.start().address.cookie;
  std::string bytes = FrameBytes(MSG_HOST_DESCRIPTION, kHost);
  for (int i = 0; i < 100; ++i) bytes += FrameBytes(MSG_DATA, "[]");
  bytes +=
      FrameBytes(MSG_COOKIE, cookie) + FrameBytes(MSG_DATA, "[]") + FrameBytes(MSG_COOKIE, cookie);
  const Deadline deadline(kAnswerMs);
  static_cast<void>(link->Write(bytes, deadline));
  for (int answers = 0; answers < 2; ++answers) {
    const auto response = link->ReadCookieResponse(deadline, nullptr);
    if (response == cookie) continue;
    return trial.Blocked(
        "joined-frames",
        "After 104 frames that were sent at once: " +
            (response ? "the wrong answer to a cookie" : trial.WhatHappened(*link)),
        kFramesRemedy);
  }
  return Ok("104 frames at once");
}

CheckResult CheckUnknownTypes(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.AuthorizeForFrames(&blocked);
  if (!link) return blocked;
  const std::string cookie = trial.start().address.cookie;
  for (const uint16_t type : kUnknownTypes) {
    const std::string bytes = FrameBytes(type, "") + FrameBytes(type, "of an unknown type") +
                              FrameBytes(MSG_COOKIE, cookie);
    static_cast<void>(link->Write(bytes, Deadline(kAnswerMs)));
    const std::string problem = AwaitCookie(trial, *link);
    if (problem.empty()) continue;
    return Fault("After a frame of type " + std::to_string(type) + ": " + problem,
                 "Drop frames of types that the engine does not know, and read on.");
  }
  return Ok("frames of unknown types are dropped");
}

CheckResult CheckClients(Trial& trial) {
  CheckResult blocked;
  if (!trial.Authorize(&blocked)) return blocked;
  const std::string cookie = trial.start().address.cookie;
  const std::string remedy = "Serve every connection at once: each element on each page makes one.";
  std::vector<EngineLink> links;
  for (int i = 0; i < kClients; ++i) {
    std::optional<EngineLink> link = trial.Connect(&blocked);
    if (!link) return Fault("Connection " + std::to_string(i + 1) + " was refused", remedy);
    links.push_back(std::move(*link));
  }
  const Deadline deadline(kManyAnswersMs);
  // The last comes first: none has to wait for one before it.
  for (auto link = links.rbegin(); link != links.rend(); ++link) {
    static_cast<void>(link->Write(FrameBytes(MSG_COOKIE, cookie), deadline));
    if (link->ReadCookieResponse(deadline, nullptr) == cookie) continue;
    return Fault("With " + std::to_string(kClients) +
                     " connections open, one had no answer to its "
                     "cookie: " +
                     trial.WhatHappened(*link),
                 remedy);
  }
  EngineLink last = std::move(links.back());
  links.clear();
  static_cast<void>(last.Write(FrameBytes(MSG_COOKIE, cookie), deadline));
  const std::string problem = AwaitCookie(trial, last);
  if (problem.empty()) return Ok(std::to_string(kClients) + " connections at a time");
  return Fault("When others closed their connections, one that stayed had no answer: " + problem,
               remedy);
}

}  // namespace mpbp::enginecheck
