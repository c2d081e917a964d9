#ifndef MPBP_FUZZ_CHOICES_H_
#define MPBP_FUZZ_CHOICES_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mpbp::fuzz {

// A random number source that the input decides: pieces to cut it into, sizes, choices.
class Choices {
 public:
  explicit Choices(std::string_view input);
  // From `low` to `high`, both included.
  size_t Between(size_t low, size_t high);

 private:
  uint64_t state_;
};

}  // namespace mpbp::fuzz

#endif  // MPBP_FUZZ_CHOICES_H_
