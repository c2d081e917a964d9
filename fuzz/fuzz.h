// What the fuzz targets share. A target is one file that defines TestInput; it is built with
// libFuzzer, or with a main of its own that runs it over the target's corpus.
#ifndef MPBP_FUZZ_FUZZ_H_
#define MPBP_FUZZ_FUZZ_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mpbp::fuzz {

// The target: reads the input as its parser's peer would have sent it, and checks what must hold.
void TestInput(std::string_view input);

// Says what did not hold and ends the process, which libFuzzer takes for a find.
[[noreturn]] void Fail(const char* what, const char* file, int line);

#define FUZZ_CHECK(condition) \
  ((condition) ? (void)0 : ::mpbp::fuzz::Fail(#condition, __FILE__, __LINE__))

// The input cut at line feeds into exactly `count` fields: the last one takes what is left, and
// those that are missing are empty.
std::vector<std::string> SplitFields(std::string_view input, size_t count);

}  // namespace mpbp::fuzz

#endif  // MPBP_FUZZ_FUZZ_H_
