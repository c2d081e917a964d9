#ifndef MPBP_HOST_UTF8_H_
#define MPBP_HOST_UTF8_H_

#include <string_view>

namespace mpbp::host {

// True for well-formed UTF-8: no surrogates, no overlong forms, nothing above U+10FFFF. NUL bytes
// and the empty text are fine. Any thread.
bool IsValidUtf8(std::string_view bytes);

}  // namespace mpbp::host

#endif  // MPBP_HOST_UTF8_H_
