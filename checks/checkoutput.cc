#include "checks/checkoutput.h"

#include <json/value.h>
#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "base/stringutils.h"
#include "base/utf8.h"

namespace mpbp {
namespace {

// As wide as the longest of all names.
constexpr size_t kStatusWidth = 8;
constexpr size_t kNameWidth = 14;

// ECMA-48 "select graphic rendition".
const char* ColorOf(CheckStatus status) {
  switch (status) {
    case CheckStatus::OK:
      return "\x1b[32m";
    case CheckStatus::WARNING:
      return "\x1b[33m";
    case CheckStatus::FAULT:
      return "\x1b[31m";
    case CheckStatus::SKIPPED:
      break;
  }
  return "\x1b[2m";
}

std::string Padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\n') || byte == 0x7F) {
      constexpr char kDigits[] = "0123456789abcdef";
      printable += "\\x";
      printable += kDigits[byte >> 4];
      printable += kDigits[byte & 15];
    } else {
      printable += c;
    }
  }
  return ReplaceInvalidUtf8(printable);
}

bool WantsColors() {
  const char* no_color = getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) && (!no_color || !*no_color);
}

std::string OutcomeText(const CheckOutcome& outcome, bool colors) {
  const CheckResult& result = outcome.result;
  std::string status = Padded(CheckStatusName(result.status), kStatusWidth);
  if (colors) status = ColorOf(result.status) + status + "\x1b[0m";
  std::string text = status + Padded(outcome.name, kNameWidth) + ' ' +
                     ReplaceAll(Printable(result.message), "\n", " ") + '\n';
  if (!result.remedy.empty()) {
    const std::string indent = std::string(kStatusWidth, ' ');
    text += indent + ReplaceAll(Printable(result.remedy), "\n", "\n" + indent) + '\n';
  }
  return text;
}

std::string OutcomesJson(const std::string& version, const std::vector<CheckOutcome>& outcomes) {
  Json::Value json(Json::objectValue);
  json["version"] = version;
  json["checks"] = Json::Value(Json::arrayValue);
  for (const CheckOutcome& outcome : outcomes) {
    Json::Value check(Json::objectValue);
    check["name"] = outcome.name;
    check["status"] = CheckStatusName(outcome.result.status);
    check["message"] = Printable(outcome.result.message);
    check["remedy"] = Printable(outcome.result.remedy);
    json["checks"].append(check);
  }
  json["faults"] = CountFaults(outcomes);
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  writer["emitUTF8"] = true;
  writer["enableYAMLCompatibility"] = true;  // no blank before the colon
  return Json::writeString(writer, json) + '\n';
}

int CountFaults(const std::vector<CheckOutcome>& outcomes) {
  return static_cast<int>(std::count_if(
      outcomes.begin(), outcomes.end(),
      [](const CheckOutcome& outcome) { return outcome.result.status == CheckStatus::FAULT; }));
}

}  // namespace mpbp
