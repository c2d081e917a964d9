// Replaces the operator new of the test's program: it counts, and fails when told. For one file of
// a program.
#ifndef MPBP_TESTS_SUPPORT_ALLOCATIONS_H_
#define MPBP_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstdlib>
#include <new>

namespace mpbp::test {

inline thread_local long allocations = 0;
// Allocations of this thread until one fails; none fails below 0.
inline thread_local int until_failure = -1;
inline thread_local bool has_failed = false;

// Null when it fails.
inline void* Allocate(size_t size) noexcept {
  ++allocations;
  const bool fails = until_failure == 0;
  if (until_failure >= 0) --until_failure;
  has_failed = has_failed || fails;
  return fails ? nullptr : malloc(size > 0 ? size : 1);
}

}  // namespace mpbp::test

// Not inlined: the compiler would see malloc and free behind a pair that it knows.
[[gnu::noinline]] void* operator new(size_t size) {
  if (void* const block = mpbp::test::Allocate(size)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return mpbp::test::Allocate(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept { free(block); }
[[gnu::noinline]] void operator delete(void* block, size_t) noexcept { free(block); }

#endif  // MPBP_TESTS_SUPPORT_ALLOCATIONS_H_
