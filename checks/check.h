// A check, and what it found.
#ifndef MPBP_CHECKS_CHECK_H_
#define MPBP_CHECKS_CHECK_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace mpbp {

// From the least to the worst.
enum class CheckStatus { SKIPPED, OK, WARNING, FAULT };

// "skipped", "ok", "warning" or "fault".
const char* CheckStatusName(CheckStatus status);

// What a check found, in any bytes; the output makes them fit to be shown. The worst status counts.
// A result that nothing was added to is a skipped one without a message.
struct CheckResult {
  CheckStatus status = CheckStatus::SKIPPED;
  std::string message;  // joined with "; "
  std::string remedy;   // a line each, none twice; for warnings and faults

  void AddOk(std::string_view text) { Add(CheckStatus::OK, text, ""); }
  void AddWarning(std::string_view text, std::string_view what_to_do) {
    Add(CheckStatus::WARNING, text, what_to_do);
  }
  void AddFault(std::string_view text, std::string_view what_to_do) {
    Add(CheckStatus::FAULT, text, what_to_do);
  }
  void Add(CheckStatus found, std::string_view text, std::string_view what_to_do);
};

// For a check that returns at one place only.
CheckResult Ok(std::string_view message);
CheckResult Warning(std::string_view message, std::string_view remedy);
CheckResult Fault(std::string_view message, std::string_view remedy);
CheckResult Skipped(std::string_view why);

struct Check {
  std::string name;   // what --only takes; it stays the same for ever
  std::string about;  // one line: what is looked at
  std::function<CheckResult()> run;
};

// Of a check that ran.
struct CheckOutcome {
  std::string name;
  CheckResult result;
};

// Runs it; an exception is a fault of its own.
CheckOutcome RunCheck(const Check& check);

}  // namespace mpbp

#endif  // MPBP_CHECKS_CHECK_H_
