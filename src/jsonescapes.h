// JSON's escapes in texts that need not be JSON.
#ifndef MPBP_JSONESCAPES_H_
#define MPBP_JSONESCAPES_H_

#include <string>
#include <string_view>

namespace mpbp {

// The text with its escapes resolved, wherever they stand: "\u002d" is a hyphen, and a backslash
// before any other character, also one that JSON knows no escape for, is dropped. An escape above
// "\u007f" only loses its backslash. For finding words in texts that some reader may take for JSON.
std::string WithoutJsonEscapes(std::string_view text);

}  // namespace mpbp

#endif  // MPBP_JSONESCAPES_H_
