// What is printed of checks that ran. Every text is valid UTF-8 and has no control characters, so
// that a file's name or an engine's text cannot steer a terminal.
#ifndef MPBP_CHECKS_CHECKOUTPUT_H_
#define MPBP_CHECKS_CHECKOUTPUT_H_

#include <string>
#include <string_view>
#include <vector>

#include "checks/check.h"

namespace mpbp {

// The text with an escape such as \x1b for each control character but the line feed, and U+FFFD
// where it is no UTF-8.
std::string Printable(std::string_view text);

// Whether standard output is a terminal and NO_COLOR is not set, or set to nothing.
bool WantsColors();

// One line, and an indented one for each line of the remedy.
std::string OutcomeText(const CheckOutcome& outcome, bool colors);

// {"version","checks":[{"name","status","message","remedy"}],"faults":N}, with a line feed.
std::string OutcomesJson(const std::string& version, const std::vector<CheckOutcome>& outcomes);

int CountFaults(const std::vector<CheckOutcome>& outcomes);

}  // namespace mpbp

#endif  // MPBP_CHECKS_CHECKOUTPUT_H_
