// When a wait ends.
#ifndef MPBP_ENGINECHECK_DEADLINE_H_
#define MPBP_ENGINECHECK_DEADLINE_H_

#include <cstdint>

namespace mpbp::enginecheck {

// All deadlines pass at once. From a signal handler too.
void InterruptWaits();
bool WaitsInterrupted();

class Deadline {
 public:
  explicit Deadline(int ms);

  // Milliseconds, 0 when it has passed.
  int Left() const;
  bool Passed() const { return Left() == 0; }
  // Sleeps for a few milliseconds, for loops that ask again and again. True when it has passed.
  [[nodiscard]] bool PassedAfterPause() const;
  // Since it was made.
  int Elapsed() const;

 private:
  const uint32_t start_;
  const int ms_;
};

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_DEADLINE_H_
