// An options file that somebody edited: read like a simple reader does, and again after it was
// saved.
#include "base/optionsfile.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <sstream>

#include "fuzz/fuzz.h"
#include "fuzz/memory_file.h"

namespace mpbp::fuzz {
namespace {

using Options = std::map<std::string, std::string>;

Options ReadPlainly(std::string_view text) {
  Options options;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    const size_t separator = line.find('=');
    if (separator == std::string::npos) continue;
    while (line.back() == '\r') line.pop_back();  // ends at the "=", at the latest
    options.insert_or_assign(line.substr(0, separator), line.substr(separator + 1));
  }
  return options;
}

std::optional<int32_t> ReadNumber(const std::string& text) {
  const size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string::npos) return std::nullopt;
  const bool negative = text[start] == '-';
  size_t at = start + (negative || text[start] == '+' ? 1 : 0);
  if (at == text.size() || text[at] < '0' || text[at] > '9') return std::nullopt;
  int64_t number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    number = number * 10 + (text[at] - '0');
    if (number > int64_t{1} << 31) return std::nullopt;
  }
  if (negative) number = -number;
  if (number > std::numeric_limits<int32_t>::max()) return std::nullopt;
  return static_cast<int32_t>(number);
}

bool IsLegal(const std::string& text) { return text.find('\\') == std::string::npos; }

void CheckOptions(const OptionsFile& file, const Options& expected) {
  for (const auto& [name, value] : expected) {
    std::string text;
    int32_t number = 0;
    const bool has_text = file.GetStringValue(name, &text);
    FUZZ_CHECK(has_text == IsLegal(name));
    FUZZ_CHECK(!has_text || text == value);
    const bool has_number = file.GetIntValue(name, &number);
    const std::optional<int32_t> expected_number = ReadNumber(value);
    FUZZ_CHECK(has_number == (IsLegal(name) && expected_number));
    FUZZ_CHECK(!has_number || number == *expected_number);
  }
}

// Setting is refused or reads back, and never makes a second option of one.
void CheckSetting(const std::string& name, const std::string& value) {
  const MemoryFile saved;
  OptionsFile options(saved.path());
  const bool legal = name.find_first_of("\n\\=") == std::string::npos &&
                     value.find_first_of("\n\\") == std::string::npos;
  FUZZ_CHECK(options.SetStringValue(name, value) == legal);
  FUZZ_CHECK(options.Save());
  FUZZ_CHECK(saved.Content() == (legal ? name + "=" + value + "\n" : ""));
}

}  // namespace

void TestInput(std::string_view input) {
  const Options expected = ReadPlainly(input);
  const MemoryFile file(input);
  OptionsFile options(file.path());
  FUZZ_CHECK(options.Load());
  CheckOptions(options, expected);

  bool all_legal = true;
  std::string text;
  for (const auto& [name, value] : expected) {
    all_legal = all_legal && IsLegal(name) && IsLegal(value);
    text.append(name).append("=").append(value).append("\n");
  }
  const bool saved = options.Save();
  FUZZ_CHECK(saved || !all_legal);
  if (saved) {
    FUZZ_CHECK(file.Content() == text);
    OptionsFile again(file.path());
    FUZZ_CHECK(again.Load());
    CheckOptions(again, expected);
  }

  const std::string name(input.substr(0, input.find('=')));
  CheckSetting(name, std::string(input.substr(name.size())));
}

}  // namespace mpbp::fuzz
