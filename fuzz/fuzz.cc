#include "fuzz/fuzz.h"

#include <cstdio>
#include <cstdlib>

namespace mpbp::fuzz {

void Fail(const char* what, const char* file, int line) {
  fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
  abort();
}

std::vector<std::string> SplitFields(std::string_view input, size_t count) {
  std::vector<std::string> fields(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t end = i + 1 < count ? input.find('\n') : std::string_view::npos;
    fields[i] = input.substr(0, end);
    if (end == std::string_view::npos) break;
    input.remove_prefix(end + 1);
  }
  return fields;
}

}  // namespace mpbp::fuzz
