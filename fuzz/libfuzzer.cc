// A target's entry for libFuzzer.
#include <cstdint>

#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  mpbp::fuzz::TestInput({reinterpret_cast<const char*>(data), size});
  return 0;
}
