#include "base/stringutils.h"

#include <string.h>

#include <algorithm>

namespace mpbp {
namespace {

bool EqualIgnoringCase(char a, char b) { return ToUpperAscii(a) == ToUpperAscii(b); }

}  // namespace

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), ToLowerAscii);
  return lower;
}

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(), EqualIgnoringCase);
}

size_t FindWord(std::string_view text, std::string_view word, size_t from) {
#ifdef __SANITIZE_THREAD__
  return text.find(word, from);  // memmem is made to look at all of the text at each call
#endif
  const void* const hit = memmem(text.data() + from, text.size() - from, word.data(), word.size());
  if (!hit) return std::string_view::npos;
  return static_cast<size_t>(static_cast<const char*>(hit) - text.data());
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  size_t pos = 0;
  for (size_t hit = text.find(from); hit != std::string_view::npos; hit = text.find(from, pos)) {
    result.append(text.substr(pos, hit - pos)).append(to);
    pos = hit + from.size();
  }
  return result.append(text.substr(pos));
}

std::string_view TrimWhitespace(std::string_view text) {
  constexpr std::string_view kWhitespace = " \t\r\n";
  const size_t first = text.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhitespace) - first + 1);
}

bool MatchesWildcard(std::string_view text, std::string_view pattern) {
  constexpr size_t kNone = std::string_view::npos;
  size_t t = 0;
  size_t p = 0;
  size_t literal_at = kNone;  // the pattern character after the last asterisk
  size_t retry_at = 0;        // where in the text the match after that asterisk was last begun
  for (;;) {
    const bool more = p < pattern.size();
    if (more && pattern[p] == '*' && p != literal_at) {
      if (p + 1 == pattern.size()) return true;
      literal_at = ++p;
      retry_at = t;
    } else if (more && t < text.size() && EqualIgnoringCase(pattern[p], text[t])) {
      ++p;
      ++t;
    } else if (!more && t == text.size()) {
      return true;
    } else {
      // Only the last asterisk need be tried again: the ones before it took the shortest run.
      if (literal_at == kNone || retry_at == text.size()) return false;
      p = literal_at;
      t = ++retry_at;
    }
  }
}

}  // namespace mpbp
