// JSON in and out: what was read is written so that it reads the same, and bytes survive in
// strings.
#include "jsontext.h"

#include "fuzz/fuzz.h"

namespace mpbp::fuzz {

void TestInput(std::string_view input) {
  const std::string text(input);
  std::string errors;
  const std::optional<Json::Value> value = ParseJson(text, &errors);
  FUZZ_CHECK(value || !errors.empty());
  if (value) {
    const std::string written = WriteJson(*value);
    FUZZ_CHECK(!written.empty() && written.find('\n') == std::string::npos);
    const std::optional<Json::Value> again = ParseJson(written);
    FUZZ_CHECK(again && *again == *value);
    FUZZ_CHECK(WriteJson(*again) == written);
  }

  const std::string quoted = WriteJson(Json::Value(text));
  FUZZ_CHECK(quoted.size() >= text.size() + 2 && quoted.size() <= 6 * text.size() + 2);
  const std::optional<Json::Value> string = ParseJson(quoted);
  FUZZ_CHECK(string && AsString(*string) == text);
}

}  // namespace mpbp::fuzz
