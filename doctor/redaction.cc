#include "doctor/redaction.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <deque>

namespace mpbp::doctor {
namespace {

constexpr char kLeftOut[] = "(...)";

// Beginnings of lines whose rest is the plug-in's own too: numbers, paths, reports to the page.
constexpr const char* kHarmless[] = {
    "Connect Status: ",
    "Cpu: ",
    "HandleOnlineCheck: ",
    "ScheduleOnlineCheck: ",
    "Started MurmelParlPlugin, path=",
    "Failed to start MurmelParlPlugin, path=",
    "MurmelParlPlugin cannot be run, path=",
    "MurmelParlPlugin was started ",
    "Log begun ",
    "Configuration folder: ",
    "The configuration folder is relative",
    "Option ",
    "There is no options file, path=",
    "The log file cannot be ",
    "The log file's folder cannot be made, path=",
    "Unable to create directory for logfile: ",
    "Unable to write to logfile:",
    "The options file cannot be read, path=",
    "The configuration folder cannot be made, path=",
};

// Words that a text or a cookie follows without any mark between.
constexpr const char* kTextFollows[] = {"sending cookie ", "HttpResponse body.data ",
                                        "MessageReceived ", "Ignoring operation for illegal "};

bool IsDigit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }

// The length of "[012:345] "; 0 when the line does not begin so.
size_t StampLength(std::string_view line) {
  size_t i = 1;
  if (!line.starts_with('[')) return 0;
  while (i < line.size() && (IsDigit(line[i]) || line[i] == ':')) ++i;
  const bool whole = i >= 8 && line.substr(i).starts_with("] ");
  return whole ? i + 2 : 0;
}

// The length of "Error(file.cc:12): " and "0x5581a0: ", which may both be missing.
size_t HeadLength(std::string_view text) {
  size_t length = 0;
  for (const char* const severity : {"Warning(", "Error("}) {
    const size_t end = text.find("): ");
    if (text.starts_with(severity) && end != std::string_view::npos) length = end + 3;
  }
  const std::string_view rest = text.substr(length);
  size_t object = rest.starts_with("0x") ? 2 : 0;
  while (object > 0 && object < rest.size() && isxdigit(static_cast<unsigned char>(rest[object]))) {
    ++object;
  }
  return rest.substr(object).starts_with(": ") && object > 0 ? length + object + 2 : length;
}

// A number, or the system's words for one.
bool IsHarmlessValue(std::string_view value) {
  if (value.starts_with(" [0x")) return true;  // of an error, with the system's text
  return value.find_first_not_of("0123456789 .,-") == std::string_view::npos;
}

bool IsWordCharacter(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

void ReplaceWord(std::string* text, const std::string& word, const std::string& replacement) {
  for (size_t at = text->find(word); at != std::string::npos; at = text->find(word, at)) {
    const size_t end = at + word.size();
    // A text that begins or ends with something else than a letter needs no border there.
    const bool begins =
        at == 0 || !IsWordCharacter(word.front()) || !IsWordCharacter((*text)[at - 1]);
    const bool ends =
        end == text->size() || !IsWordCharacter(word.back()) || !IsWordCharacter((*text)[end]);
    if (begins && ends) text->replace(at, word.size(), replacement);
    at += begins && ends ? replacement.size() : 1;
  }
}

void ReplaceHomes(std::string* text) {
  constexpr std::string_view kHomes = "/home/";
  for (size_t at = text->find(kHomes); at != std::string::npos; at = text->find(kHomes, at)) {
    at += kHomes.size();
    const size_t end = std::min(text->find_first_of("/ \n:;,\"'", at), text->size());
    text->replace(at, end - at, "USER");
  }
}

}  // namespace

std::string RedactLogLine(std::string_view line) {
  const size_t stamp = StampLength(line);
  if (stamp == 0) return {};
  const size_t head = stamp + HeadLength(line.substr(stamp));
  const std::string_view text = line.substr(head);
  for (const char* const harmless : kHarmless) {
    if (text.starts_with(harmless)) return std::string(line);
  }
  for (const char* const words : kTextFollows) {
    const size_t end = std::string_view(words).size();
    const size_t begin = text.find_first_not_of(' ');
    if (begin != std::string_view::npos && text.substr(begin).starts_with(words)) {
      return std::string(line.substr(0, head + begin + end)) + kLeftOut;
    }
  }
  // From the first mark on there may be anything.
  const size_t mark = text.find_first_of(":=\"'[{|");
  if (mark == std::string_view::npos || IsHarmlessValue(text.substr(mark + 1))) {
    return std::string(line);
  }
  return std::string(line.substr(0, head + mark + 1)) + kLeftOut;
}

std::string RedactLog(std::string_view log, size_t count) {
  std::deque<std::string> lines;
  size_t left_out = 0;
  while (!log.empty()) {
    const size_t end = std::min(log.find('\n'), log.size());
    std::string line = RedactLogLine(log.substr(0, end));
    log.remove_prefix(std::min(end + 1, log.size()));
    if (line.empty()) {
      ++left_out;
      continue;
    }
    lines.push_back(std::move(line));
    if (lines.size() > count) lines.pop_front();
  }
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  if (left_out > 0) text += "(" + std::to_string(left_out) + " lines of texts are left out)\n";
  return text;
}

NameRedaction NameRedaction::OfThisUser() {
  NameRedaction names;
  if (const char* const home = getenv("HOME")) names.Add(home, "~");
  for (const char* const variable : {"USER", "LOGNAME"}) {
    if (const char* const name = getenv(variable)) names.Add(name, "USER");
  }
  if (const passwd* const entry = getpwuid(geteuid())) {
    names.Add(entry->pw_name, "USER");
    const std::string gecos = entry->pw_gecos ? entry->pw_gecos : "";
    names.Add(gecos.substr(0, gecos.find(',')), "USER");
  }
  char host[HOST_NAME_MAX + 1] = "";
  if (gethostname(host, sizeof(host) - 1) == 0) names.Add(host, "MACHINE");
  return names;
}

void NameRedaction::Add(const std::string& text, const std::string& replacement) {
  if (!text.empty() && text != "/") entries_.push_back({text, replacement});
}

std::string NameRedaction::Apply(std::string text) const {
  for (const Entry& entry : entries_) ReplaceWord(&text, entry.text, entry.replacement);
  ReplaceHomes(&text);
  return text;
}

}  // namespace mpbp::doctor
