// What the checks of one run share: the folder, the engine that runs in it, and what was seen of
// it.
#ifndef MPBP_ENGINECHECK_TRIAL_H_
#define MPBP_ENGINECHECK_TRIAL_H_

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/uniquefd.h"
#include "checks/check.h"
#include "enginecheck/enginelink.h"
#include "enginecheck/engineprocess.h"
#include "enginecheck/privatefolder.h"

namespace mpbp::enginecheck {

// How long an engine has for one thing. The plug-in itself waits five seconds for the cookie.
inline constexpr int kStartMs = 15'000;
inline constexpr int kCookieMs = 5'000;
inline constexpr int kAnswerMs = 10'000;
inline constexpr int kManyAnswersMs = 30'000;
inline constexpr int kEndMs = 10'000;

// What was seen when an engine wrote its port file.
struct Start {
  std::string port_file;
  EngineAddress address;     // of the file's form, or port 0
  std::string form_problem;  // why there is no address; "" when there is one
  bool written_in_place = false;
  int ms = 0;  // from the start of the program
};

class Trial {
 public:
  // `words`: those of the engine by which a page's text comes back, "echo" for ["echo",any].
  Trial(std::string program, std::vector<std::string> words);
  ~Trial();  // ends every engine

  const std::vector<std::string>& words() const { return words_; }
  const PrivateFolder& folder() const { return folder_; }

  // Each of the following gives nothing when the engine does not come so far; *blocked is then the
  // result of the check.

  // The engine that runs, until the next call. One is started when there is none.
  EngineProcess* Engine(CheckResult* blocked);
  // A connection to it, and one whose cookie it has answered.
  std::optional<EngineLink> Connect(CheckResult* blocked);
  std::optional<EngineLink> Authorize(CheckResult* blocked);
  // The same, for checks that send many frames at once: none when those are known to get lost.
  std::optional<EngineLink> AuthorizeForFrames(CheckResult* blocked);
  // Why nothing more came on a connection to it.
  std::string WhatHappened(const EngineLink& link);
  // Whether the engine that was started last answers. None is started.
  bool StillServes();
  // A further engine, of which nothing is waited for.
  std::unique_ptr<EngineProcess> StartAnother(CheckResult* blocked);
  // SIGTERM to the engine that runs, which has ended then.
  [[nodiscard]] bool Terminate(CheckResult* blocked);

  // What `check` looks at is not so, which others need: a fault the first time, whichever of them
  // finds it, and a skipped check from then on.
  CheckResult Blocked(const std::string& check, const std::string& message,
                      const std::string& remedy);

  // Waits for a port file other than `before`. False when none comes. Then the engine is the one
  // that Engine gives.
  [[nodiscard]] bool Await(std::unique_ptr<EngineProcess> engine, const std::string& before,
                           std::string* problem);

  // Of the engine that runs, or ran last.
  const Start& start() const { return starts_.back(); }
  const std::vector<Start>& starts() const { return starts_; }

 private:
  // Where a port file lies already, with an engine that is gone.
  [[nodiscard]] bool LeaveOldPortFile();
  // Whether that check was Blocked; *blocked is then a skipped one.
  bool Needs(const std::string& check, CheckResult* blocked) const;
  void ReadAddress(Start* start) const;
  // Sends the right cookie and reads the answer. False when that is wrong.
  [[nodiscard]] bool Handshake(EngineLink& link, std::string* problem);

  const std::string program_;
  const std::vector<std::string> words_;
  PrivateFolder folder_;
  UniqueFd old_port_file_;  // open, so that its number is not given to another file
  std::unique_ptr<EngineProcess> engine_;
  std::vector<Start> starts_;
  std::string start_problem_;  // an engine that did not start is not tried again
  std::set<std::string> blocked_;
};

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_TRIAL_H_
