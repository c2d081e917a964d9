// Texts: the engine's own, pages', and long ones.
#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "base/stringutils.h"
#include "enginecheck/enginechecks.h"
#include "jsontext.h"
#include "messagesocket.h"

namespace mpbp::enginecheck {
namespace {

// What the plug-in finds anywhere in an engine's text, in quotes, and what it takes at element 0.
constexpr std::array<std::string_view, 3> kWordsAnywhere = {"qw", "httprequest", "getproxyforurl"};
constexpr std::array<std::string_view, 3> kWordsInFront = {
    "mpbp-request-permission", "mpbp-start-remoting", "mpbp-stop-remoting"};

// Stands in each text of a page that is tried, to tell what comes back from what is the engine's.
constexpr char kMark[] = "from-the-page";

// What a page may try: "@" is one of the words, "%" the same word with an escape in it, "#" a word
// by which the engine gives texts back.
constexpr const char* kTextsWithWord[] = {
    R"(["@",1,{"host":"127.0.0.1","path":"/from-the-page","port":1,"proto":"http","verb":"GET"},"",""])",
    R"(from-the-page is no JSON "@")",
};
constexpr const char* kTextsToEngine[] = {
    R"(["#","@","from-the-page"])",
    R"(["#",{"@":"from-the-page"},"from-the-page"])",
    R"(["#","%","from-the-page"])",
    R"(["#","@"]from-the-page)",
    // The word at the end of a string, for engines that take one, two or three.
    R"(["#","from-the-page\"@"])",
    R"(["#","from-the-page\"@",""])",
    R"(["#","","from-the-page\"@"])",
    R"(["#","from-the-page\"@","",""])",
};
constexpr const char* kTextsWithWordInFront[] = {
    R"(["@","from-the-page",0,1])",
    R"(["%","from-the-page",0,1])",
    "\xEF\xBB\xBF/* */ [\"@\",\"from-the-page\",0,1,] more",
};

constexpr size_t kLargeText = 10'000'000;
constexpr size_t kShownText = 120;
constexpr int kSettleMs = 300;

// The text with the words in their places.
std::string Fill(const char* text, std::string_view found, std::string_view own) {
  char escaped[] = "\\u0000";
  snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(found[1]));
  std::string with_escape(found);
  with_escape.replace(1, 1, escaped);
  return ReplaceAll(ReplaceAll(ReplaceAll(text, "@", found), "%", with_escape), "#", own);
}

std::vector<std::string> HostileTexts(const std::vector<std::string>& words) {
  std::vector<std::string> texts;
  for (const std::string_view found : kWordsAnywhere) {
    for (const char* text : kTextsWithWord) texts.push_back(Fill(text, found, ""));
    for (const std::string& word : words) {
      for (const char* text : kTextsToEngine) texts.push_back(Fill(text, found, word));
    }
  }
  for (const std::string_view taken : kWordsInFront) {
    for (const char* text : kTextsWithWordInFront) texts.push_back(Fill(text, taken, ""));
  }
  return texts;
}

// Whether the plug-in would take the text for itself.
bool IsActedOn(const std::string& text) {
  if (std::any_of(kWordsAnywhere.begin(), kWordsAnywhere.end(), [&text](std::string_view word) {
        return text.find('"' + std::string(word) + '"') != std::string::npos;
      })) {
    return true;
  }
  const std::optional<Json::Value> message = ParseJson(text);
  const std::string name = message ? AsString(ElementAt(*message, 0)).value_or("") : "";
  return std::find(kWordsInFront.begin(), kWordsInFront.end(), name) != kWordsInFront.end();
}

}  // namespace

CheckResult CheckQw(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.Authorize(&blocked);
  if (!link) return blocked;
  const Deadline deadline(kAnswerMs);
  while (const std::optional<Frame> frame = link->Read(deadline)) {
    if (frame->first != MSG_DATA || frame->second.find("\"qw\"") == std::string::npos) continue;
    return Ok("after " + std::to_string(deadline.Elapsed()) + " ms");
  }
  return Fault("No text with \"qw\" came after the cookie: " + trial.WhatHappened(*link),
               "Send one, such as [\"qw\",{}], as soon as a connection is authorized. Without it "
               "the plug-in does not start the engine again when it dies.");
}

CheckResult CheckPageTexts(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.AuthorizeForFrames(&blocked);
  if (!link) return blocked;
  std::optional<EngineLink> other = trial.Authorize(&blocked);
  if (!other) return blocked;
  const std::string cookie = trial.start().address.cookie;
  const Deadline deadline(kManyAnswersMs);
  std::vector<std::string> answers;
  for (const std::string& text : HostileTexts(trial.words())) {
    static_cast<void>(link->Write(FrameBytes(MSG_DATA, text), deadline));
  }
  // What an engine answers at once stands before its answer to a cookie; others have a little time.
  for (EngineLink* each : {&*link, &*other}) {
    static_cast<void>(each->Write(FrameBytes(MSG_COOKIE, cookie), deadline));
    if (!each->ReadCookieResponse(deadline, &answers)) {
      return Fault("After texts of a page that are no requests: " + trial.WhatHappened(*each),
                   "Drop what the engine does not understand, and read on.");
    }
  }
  for (EngineLink* each : {&*link, &*other}) {
    const Deadline settled(kSettleMs);
    while (std::optional<Frame> frame = each->Read(settled)) answers.push_back(frame->second);
  }
  std::erase_if(answers,
                [](const std::string& text) { return text.find(kMark) == std::string::npos; });
  const auto acted_on = std::find_if(answers.begin(), answers.end(), IsActedOn);
  if (acted_on != answers.end()) {
    return Fault("A page's text came back so that the plug-in acts on it: " +
                     acted_on->substr(0, kShownText),
                 "See \"Texts of others\" in docs/wire-format.md: such a page acts with the "
                 "engine's rights.");
  }
  if (answers.empty()) {
    return Ok("none came back (--words names the engine's words that bring a page's text back)");
  }
  return Ok(std::to_string(answers.size()) + " came back, none that the plug-in acts on");
}

CheckResult CheckLargeText(Trial& trial) {
  CheckResult blocked;
  std::optional<EngineLink> link = trial.AuthorizeForFrames(&blocked);
  if (!link) return blocked;
  const std::string cookie = trial.start().address.cookie;
  const std::string front = "[\"" + trial.words().front() + "\",\"";
  const std::string text = front + std::string(kLargeText - front.size() - 2, 'x') + "\"]";
  const Deadline deadline(kManyAnswersMs);
  static_cast<void>(
      link->Write(FrameBytes(MSG_DATA, text) + FrameBytes(MSG_COOKIE, cookie), deadline));
  if (link->ReadCookieResponse(deadline, nullptr) == cookie) {
    return Ok("10,000,000 bytes, and what came after them, in " +
              std::to_string(deadline.Elapsed()) + " ms");
  }
  return Fault("After a text of 10,000,000 bytes: " + trial.WhatHappened(*link),
               "A page may send texts of up to 256 MiB. Read frames of any length.");
}

}  // namespace mpbp::enginecheck
