#include "fuzz/choices.h"

#include <functional>

namespace mpbp::fuzz {

Choices::Choices(std::string_view input) : state_(std::hash<std::string_view>()(input)) {}

size_t Choices::Between(size_t low, size_t high) {
  // The constants of Knuth's generator; its low bits are weak.
  state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
  return low + (state_ >> 33) % (high - low + 1);
}

}  // namespace mpbp::fuzz
