#include "enginecheck/deadline.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "base/timeutils.h"

namespace mpbp::enginecheck {
namespace {

volatile std::sig_atomic_t interrupted = 0;

constexpr std::chrono::milliseconds kPause(10);

}  // namespace

void InterruptWaits() { interrupted = 1; }

bool WaitsInterrupted() { return interrupted != 0; }

Deadline::Deadline(int ms) : start_(Time()), ms_(ms) {}

int Deadline::Left() const { return WaitsInterrupted() ? 0 : std::max(0, ms_ - Elapsed()); }

bool Deadline::PassedAfterPause() const {
  std::this_thread::sleep_for(kPause);
  return Passed();
}

int Deadline::Elapsed() const { return TimeDiff(Time(), start_); }

}  // namespace mpbp::enginecheck
