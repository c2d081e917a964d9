// The beginnings of /proc/PID/stat texts; a process chooses its name itself.
#include <algorithm>
#include <string>

#include "engineprocesses.h"
#include "fuzz/fuzz.h"

namespace mpbp::fuzz {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

void SkipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

// A number, "(", and a word.
std::optional<bool> ReadPlainly(std::string_view text) {
  SkipBlanks(text);
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(digits);
  SkipBlanks(text);
  if (digits == 0 || !text.starts_with('(')) return std::nullopt;
  text.remove_prefix(1);
  SkipBlanks(text);
  if (text.empty()) return std::nullopt;
  return text.starts_with("MurmelParlPlugi");
}

}  // namespace

void TestInput(std::string_view input) {
  const std::string stat(input);
  const char* const text = stat.c_str();  // ends at the first NUL
  FUZZ_CHECK(IsEngineStat(text) == ReadPlainly(text));
}

}  // namespace mpbp::fuzz
