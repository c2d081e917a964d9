#include "base/timeutils.h"

#include <ctime>

namespace mpbp {

uint32_t Time() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);  // cannot fail for this clock
  const int64_t ns = static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
  return static_cast<uint32_t>(ns / 1'000'000);
}

}  // namespace mpbp
