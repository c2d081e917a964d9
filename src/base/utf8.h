// UTF-8 that may be broken.
#ifndef MPBP_BASE_UTF8_H_
#define MPBP_BASE_UTF8_H_

#include <string>
#include <string_view>

namespace mpbp {

// Whether the text is well-formed: shortest forms only, no surrogates, nothing above U+10FFFF. NUL
// counts as a character.
bool IsValidUtf8(std::string_view text);

// The text with one U+FFFD for each run of bytes that begins a character and does not end it, and
// for each byte that cannot begin one.
std::string ReplaceInvalidUtf8(std::string_view text);

// The same, with one U+FFFD for each noncharacter too (U+FDD0 to U+FDEF, and the last two of every
// plane): they are well-formed, but not every browser takes them.
std::string ReplaceInvalidUtf8AndNoncharacters(std::string_view text);

}  // namespace mpbp

#endif  // MPBP_BASE_UTF8_H_
