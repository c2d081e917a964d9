// The port file that an engine, or anybody with its user's rights, wrote.
#include <cstdint>

#include "fuzz/fuzz.h"
#include "fuzz/memory_file.h"
#include "portfileutils.h"

namespace mpbp::fuzz {

void TestInput(std::string_view input) {
  const MemoryFile file(input);
  int port = 0;
  std::string cookie;
  const bool read = ReadPortFile(file.path(), &port, &cookie);
  FUZZ_CHECK(read == (input.size() >= 20));
  if (!read) return;
  uint32_t expected = 0;  // little-endian
  for (size_t i = 4; i > 0; --i) expected = expected * 256 + static_cast<uint8_t>(input[i - 1]);
  FUZZ_CHECK(port == static_cast<int32_t>(expected));
  FUZZ_CHECK(cookie == input.substr(4, 16));
}

}  // namespace mpbp::fuzz
