// The lock of the runtime: a recursive mutex and its scoped guard.
#ifndef MPBP_BASE_CRITICALSECTION_H_
#define MPBP_BASE_CRITICALSECTION_H_

#include <mutex>

namespace mpbp {

// May be entered again by the thread that holds it; every Enter needs its Leave.
class CriticalSection {
 public:
  CriticalSection() = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Enter() { mutex_.lock(); }
  void Leave() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

class CritScope {
 public:
  explicit CritScope(CriticalSection& section) : section_(section) { section_.Enter(); }
  CritScope(const CritScope&) = delete;
  CritScope& operator=(const CritScope&) = delete;
  ~CritScope() { section_.Leave(); }

 private:
  CriticalSection& section_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_CRITICALSECTION_H_
