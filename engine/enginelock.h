// Only one engine of a user runs at a time: the one that holds the lock.
#ifndef MPBP_ENGINE_ENGINELOCK_H_
#define MPBP_ENGINE_ENGINELOCK_H_

#include <string>

#include "base/uniquefd.h"

namespace mpbp::engine {

// A lock on a file, held until this object goes or the process ends, whatever ends it. The file
// stays: who deletes a locked file lets two in.
class EngineLock {
 public:
  enum class Outcome {
    kTaken,
    kHeldByOther,
    kFailed,  // errno says why
  };

  // Once. Waits for up to `wait_ms` while another one holds it, which may be about to end. The file
  // is created with mode 0600 if it is missing.
  [[nodiscard]] Outcome Take(const std::string& path, int wait_ms);

 private:
  UniqueFd fd_;
};

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_ENGINELOCK_H_
