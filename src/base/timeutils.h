// Monotonic milliseconds. They wrap after about 49.7 days; compare them with the functions below.
#ifndef MPBP_BASE_TIMEUTILS_H_
#define MPBP_BASE_TIMEUTILS_H_

#include <cstdint>

namespace mpbp {

// Milliseconds of the monotonic clock, cut to 32 bits. From any thread.
uint32_t Time();
inline uint32_t TimeAfter(int32_t ms) { return Time() + static_cast<uint32_t>(ms); }
// later - earlier, across a wrap too.
inline int32_t TimeDiff(uint32_t later, uint32_t earlier) {
  return static_cast<int32_t>(later - earlier);
}
inline bool TimeIsLater(uint32_t earlier, uint32_t later) { return TimeDiff(later, earlier) > 0; }

}  // namespace mpbp

#endif  // MPBP_BASE_TIMEUTILS_H_
