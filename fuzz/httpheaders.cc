// The header lines of a response.
#include "httpheaders.h"

#include <sstream>

#include "fuzz/fuzz.h"

namespace mpbp::fuzz {
namespace {

std::string Trimmed(std::string text) {
  const auto is_blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && is_blank(text.back())) text.pop_back();
  while (!text.empty() && is_blank(text.front())) text.erase(0, 1);
  return text;
}

HttpHeaders ReadPlainly(std::string_view block) {
  HttpHeaders headers;
  std::istringstream lines{std::string(block)};
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = Trimmed(line.substr(0, colon));
    for (char& c : name) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (headers.count(name) == 0) headers[name] = Trimmed(line.substr(colon + 1));
  }
  return headers;
}

}  // namespace

void TestInput(std::string_view input) {
  const HttpHeaders headers = ParseHttpHeaders(input);
  FUZZ_CHECK(headers == ReadPlainly(input));
  std::string block;
  for (const auto& [name, value] : headers) {
    block.append(name).append(": ").append(value).append("\r\n");
  }
  FUZZ_CHECK(ParseHttpHeaders(block) == headers);
}

}  // namespace mpbp::fuzz
