// Text helpers that more than one file needs. Pure functions, from any thread.
#ifndef MPBP_BASE_STRINGUTILS_H_
#define MPBP_BASE_STRINGUTILS_H_

#include <string>
#include <string_view>

namespace mpbp {

// Of ASCII letters only, whatever the host's locale.
constexpr char ToUpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
constexpr char ToLowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

std::string LowerCase(std::string_view text);

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix);

// As text.find(word, from), but quick in large texts full of the word's first character: a quote,
// as a rule. `word` must not be empty, and `from` not beyond the end.
size_t FindWord(std::string_view text, std::string_view word, size_t from = 0);

// `text` with every occurrence of `from` replaced; `from` must not be empty.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);

// `text` without the blanks, tabs and line ends around it.
std::string_view TrimWhitespace(std::string_view text);

// Whether the pattern covers the whole text; case is ignored. "*" stands for any run of characters,
// including the empty one, and the character after it is always literal, so "**" is any run that
// ends with an asterisk. At most text x pattern comparisons, whatever the two hold.
bool MatchesWildcard(std::string_view text, std::string_view pattern);

}  // namespace mpbp

#endif  // MPBP_BASE_STRINGUTILS_H_
