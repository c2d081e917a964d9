// Waiting with a deadline.
#ifndef MPBP_TESTS_SUPPORT_WAIT_UNTIL_H_
#define MPBP_TESTS_SUPPORT_WAIT_UNTIL_H_

#include <chrono>
#include <thread>

namespace mpbp::test {

// Asks `predicate` again and again; false when it was not true within `ms` milliseconds.
template <typename Predicate>
bool WaitUntil(Predicate predicate, int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_WAIT_UNTIL_H_
