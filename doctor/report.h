// What --report writes: for a person who helps, and without anything secret.
#ifndef MPBP_DOCTOR_REPORT_H_
#define MPBP_DOCTOR_REPORT_H_

#include <string>

#include "doctor/redaction.h"
#include "doctor/setup.h"

namespace mpbp::doctor {

// Versions, `lines` of the checks, the options and the end of both logs. `names` is from before the
// private folder took the place of HOME.
std::string MakeReport(const Setup& setup, const NameRedaction& names, const std::string& lines);

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_REPORT_H_
