// The frames that browsers exchange with native programs: the length in bytes (32 bits, native byte
// order), then so many bytes of UTF-8 JSON.
#ifndef MPBP_CONNECTOR_NATIVEMESSAGES_H_
#define MPBP_CONNECTOR_NATIVEMESSAGES_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "base/bytebuffer.h"

namespace mpbp {

// What the browsers take from a program; what the extension sends stays far below it.
inline constexpr size_t kMaxNativeMessage = size_t{1} << 20;

enum class NativeFrame {
  COMPLETE,
  PARTIAL,  // nothing was taken; more has to come
  BROKEN,   // a length of 0 or above the limit: what follows cannot be told apart any more
};

// Takes one frame out of `input`, a buffer of native byte order, into *json.
[[nodiscard]] NativeFrame ReadNativeMessage(ByteBuffer& input, std::string* json);
// Appends a frame of at most kMaxNativeMessage bytes.
void WriteNativeMessage(std::string_view json, ByteBuffer& output);

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_NATIVEMESSAGES_H_
