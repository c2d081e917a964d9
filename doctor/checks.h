// The checks, each with what it looks at. None throws on purpose, hangs or changes anything of the
// user.
#ifndef MPBP_DOCTOR_CHECKS_H_
#define MPBP_DOCTOR_CHECKS_H_

#include <string>

#include "checks/check.h"
#include "doctor/privateengine.h"
#include "doctor/privatefolder.h"
#include "doctor/setup.h"

namespace mpbp::doctor {

CheckResult CheckModule(const Setup& setup);
CheckResult CheckFolder(const Setup& setup);
CheckResult CheckOptions(const Setup& setup);
CheckResult CheckLog(const Setup& setup);
CheckResult CheckInstallDir(const Setup& setup);
CheckResult CheckPortFile(const Setup& setup);
CheckResult CheckHandshake(const Setup& setup, PrivateEngine& engine);
CheckResult CheckEcho(PrivateEngine& engine);
CheckResult CheckEngines();
// Without `url` only what is served.
CheckResult CheckHosts(const Setup& setup, PrivateFolder& folder, const std::string& url);
CheckResult CheckProxy();
CheckResult CheckConnector(const Setup& setup, PrivateFolder& folder);
CheckResult CheckBrowsers(const Setup& setup);
CheckResult CheckWebEngine(const Setup& setup);

// A host whose pages are served over https: "www.murmel.example".
std::string FirstServedHost();
// What the module file says its version is, as pages read it; empty when it does not say.
std::string ModuleVersion(const std::string& module);
// PROGRAM --version; empty when there is no answer.
std::string ProgramVersion(const std::string& program);

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_CHECKS_H_
