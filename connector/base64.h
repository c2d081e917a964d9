// Base64 as in RFC 4648, section 4: bytes in JSON.
#ifndef MPBP_CONNECTOR_BASE64_H_
#define MPBP_CONNECTOR_BASE64_H_

#include <optional>
#include <string>
#include <string_view>

namespace mpbp {

[[nodiscard]] std::string EncodeBase64(std::string_view bytes);
// Nothing for what is no base64: other characters, missing or misplaced padding.
[[nodiscard]] std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_BASE64_H_
