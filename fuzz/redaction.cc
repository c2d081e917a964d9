// What may be logged of a text, against the same done step by step in place.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "logutility.h"

namespace mpbp::fuzz {
namespace {

constexpr char kSecret[] = "\"kp\":";
constexpr size_t kValueAt = 6;  // after the member and the opening quote

std::string RedactPlainly(std::string text) {
  for (size_t hit = text.find(kSecret); hit != std::string::npos;
       hit = text.find(kSecret, hit + 1)) {
    const size_t value = hit + kValueAt;
    if (value > text.size()) break;
    const size_t end = std::min(text.find('"', value), text.size());
    text = text.substr(0, value) + "REDACTED" + text.substr(end);
  }
  const size_t open = text.find('"');
  const size_t close = open == std::string::npos ? open : text.find('"', open + 1);
  if (close == std::string::npos) return text;
  const std::string name = text.substr(open + 1, close - open - 1);
  for (const char* const kind :
       {"remoting-start", "remoting-send", "remoting-data", "remoting-input"}) {
    if (name == kind) return text.substr(0, close + 1) + ", ...REDACTED...]";
  }
  return text;
}

}  // namespace

void TestInput(std::string_view input) {
  const std::string redacted = RedactMessage(input);
  FUZZ_CHECK(redacted == RedactPlainly(std::string(input)));
  // A log that is made of a text is hardly longer.
  FUZZ_CHECK(redacted.size() <= input.size() + input.size() / 5 * 8 + 17);

  const std::string stamped = ReplaceTimestamp(input);
  FUZZ_CHECK(stamped.size() <= input.size() + input.size() / 11 * 4);
  FUZZ_CHECK(input.find("%TIMESTAMP%") != std::string_view::npos || stamped == input);
}

}  // namespace mpbp::fuzz
