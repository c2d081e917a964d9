#include "base/descriptors.h"

#include <fcntl.h>
#include <sys/select.h>

#include "base/logging.h"

namespace mpbp {

Pipe MakePipe(int flags, int* error) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC | flags) != 0) {
    if (error) *error = errno;
    return {};
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

bool SetNonBlocking(int fd, int* error) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0) return true;
  *error = errno;
  return false;
}

bool IsWatchableDescriptor(int fd) {
  if (fd >= 0 && fd < FD_SETSIZE) return true;
  LOG(LS_ERROR) << "Descriptor " << fd << " cannot be watched: select takes those below "
                << FD_SETSIZE << ".";
  return false;
}

}  // namespace mpbp
