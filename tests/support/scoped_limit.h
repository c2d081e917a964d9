// A limit of the process, for the length of a test.
#ifndef MPBP_TESTS_SUPPORT_SCOPED_LIMIT_H_
#define MPBP_TESTS_SUPPORT_SCOPED_LIMIT_H_

#include <sys/resource.h>

namespace mpbp::test {

// Sets a soft limit and puts it back at the end.
class ScopedLimit {
 public:
  ScopedLimit(__rlimit_resource_t resource, rlim_t limit) : resource_(resource) {
    getrlimit(resource_, &saved_);
    const rlimit value{limit, saved_.rlim_max};
    done_ = setrlimit(resource_, &value) == 0;
  }
  ScopedLimit(const ScopedLimit&) = delete;
  ScopedLimit& operator=(const ScopedLimit&) = delete;
  ~ScopedLimit() { setrlimit(resource_, &saved_); }

  bool done() const { return done_; }

 private:
  const __rlimit_resource_t resource_;
  rlimit saved_{};
  bool done_ = false;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_SCOPED_LIMIT_H_
