// The lock of the runtime: a recursive mutex and its scoped guard.
#ifndef MPBP_BASE_CRITICALSECTION_H_
#define MPBP_BASE_CRITICALSECTION_H_

#include <mutex>

#include "base/threadannotations.h"

namespace mpbp {

// May be entered again by the thread that holds it; every Enter needs its Leave.
class MPBP_LOCK CriticalSection {
 public:
  CriticalSection() = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Enter() MPBP_ACQUIRES() { mutex_.lock(); }
  void Leave() MPBP_RELEASES() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

class MPBP_SCOPED_LOCK CritScope {
 public:
  explicit CritScope(CriticalSection& section) MPBP_ACQUIRES(section) : section_(section) {
    section_.Enter();
  }
  CritScope(const CritScope&) = delete;
  CritScope& operator=(const CritScope&) = delete;
  ~CritScope() MPBP_RELEASES() { section_.Leave(); }

 private:
  CriticalSection& section_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_CRITICALSECTION_H_
