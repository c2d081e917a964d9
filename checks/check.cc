#include "checks/check.h"

#include <exception>

namespace mpbp {
namespace {

bool HasLine(std::string_view lines, std::string_view line) {
  while (!lines.empty()) {
    const size_t end = lines.find('\n');
    if (lines.substr(0, end) == line) return true;
    if (end == std::string_view::npos) return false;
    lines.remove_prefix(end + 1);
  }
  return false;
}

CheckResult One(CheckStatus status, std::string_view message, std::string_view remedy) {
  CheckResult result;
  result.Add(status, message, remedy);
  return result;
}

}  // namespace

const char* CheckStatusName(CheckStatus status) {
  switch (status) {
    case CheckStatus::SKIPPED:
      return "skipped";
    case CheckStatus::OK:
      return "ok";
    case CheckStatus::WARNING:
      return "warning";
    case CheckStatus::FAULT:
      break;
  }
  return "fault";
}

void CheckResult::Add(CheckStatus found, std::string_view text, std::string_view what_to_do) {
  if (found > status) status = found;
  if (!message.empty() && !text.empty()) message += "; ";
  message += text;
  if (what_to_do.empty() || HasLine(remedy, what_to_do)) return;
  if (!remedy.empty()) remedy += '\n';
  remedy += what_to_do;
}

CheckResult Ok(std::string_view message) { return One(CheckStatus::OK, message, ""); }

CheckResult Warning(std::string_view message, std::string_view remedy) {
  return One(CheckStatus::WARNING, message, remedy);
}

CheckResult Fault(std::string_view message, std::string_view remedy) {
  return One(CheckStatus::FAULT, message, remedy);
}

CheckResult Skipped(std::string_view why) { return One(CheckStatus::SKIPPED, why, ""); }

CheckOutcome RunCheck(const Check& check) {
  try {
    return {check.name, check.run()};
  } catch (const std::exception& e) {
    return {check.name, Fault(std::string("The check itself failed: ") + e.what(), "")};
  }
}

}  // namespace mpbp
