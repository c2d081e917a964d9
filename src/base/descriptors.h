// What the runtime does with descriptors of every kind.
#ifndef MPBP_BASE_DESCRIPTORS_H_
#define MPBP_BASE_DESCRIPTORS_H_

#include "base/uniquefd.h"

namespace mpbp {

struct Pipe {
  UniqueFd read_end;
  UniqueFd write_end;
};

// A pipe that is closed on exec, with the further `flags` of pipe2. Without ends, and with an
// errno value in *error (which may be null), when the system gives none.
[[nodiscard]] Pipe MakePipe(int flags, int* error);

// False, with an errno value in *error, when the system refuses.
[[nodiscard]] bool SetNonBlocking(int fd, int* error);

// Whether select can watch the descriptor. False, with an error line, when its number is at or
// above FD_SETSIZE, or it is no descriptor at all: EMFILE, where an error number is wanted.
[[nodiscard]] bool IsWatchableDescriptor(int fd);

}  // namespace mpbp

#endif  // MPBP_BASE_DESCRIPTORS_H_
