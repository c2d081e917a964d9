// The checks, by the duties of docs/engine.md. The engine that runs is used by all of them, one
// after the other; one that has died is started again.
#ifndef MPBP_ENGINECHECK_ENGINECHECKS_H_
#define MPBP_ENGINECHECK_ENGINECHECKS_H_

#include "enginecheck/trial.h"

namespace mpbp::enginecheck {

CheckResult CheckStart(Trial& trial);
CheckResult CheckProcessName(Trial& trial);
CheckResult CheckDetached(Trial& trial);
CheckResult CheckSecondStart(Trial& trial);
CheckResult CheckSigterm(Trial& trial);

CheckResult CheckPortFileNew(Trial& trial);
CheckResult CheckPortFileMode(Trial& trial);
CheckResult CheckPortFileForm(Trial& trial);
CheckResult CheckPortFileEnd(Trial& trial);
CheckResult CheckFreshCookie(Trial& trial);

CheckResult CheckLoopback(Trial& trial);
CheckResult CheckCookie(Trial& trial);
CheckResult CheckWrongCookie(Trial& trial);
CheckResult CheckSplitFrames(Trial& trial);
CheckResult CheckJoinedFrames(Trial& trial);
CheckResult CheckUnknownTypes(Trial& trial);
CheckResult CheckClients(Trial& trial);

CheckResult CheckQw(Trial& trial);
CheckResult CheckPageTexts(Trial& trial);
CheckResult CheckLargeText(Trial& trial);

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_ENGINECHECKS_H_
