// What more than one check asks of a file, and how it is said.
#ifndef MPBP_DOCTOR_FILES_H_
#define MPBP_DOCTOR_FILES_H_

#include <sys/stat.h>

#include <string>

#include "checks/check.h"

namespace mpbp::doctor {

// "No such file or directory" and the like.
std::string ErrorText(int error);

// "a folder", "a FIFO", "a regular file".
std::string KindOf(mode_t mode);

// "0755".
std::string ModeText(mode_t mode);

// Whether this user may do so; `how` is as of access(2). errno says why not.
bool MayAccess(const std::string& path, int how);

// Adds a fault when a file could not be made at `path`, whose folders may be missing too: the
// plug-in makes them.
void AddWhetherItCanBeMade(const std::string& path, CheckResult* result);

// For a path in an option or variable: a fault when it begins with a tilde, which nobody replaces,
// or does not begin with '/', which has a `consequence`. Whether it was well.
bool AddWhetherAbsolute(const std::string& what, const std::string& path,
                        const std::string& consequence, CheckResult* result);

// In words: "3 h 5 min", "12 s".
std::string DurationText(long seconds);

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_FILES_H_
