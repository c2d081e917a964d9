// Keeps a page from answering the engine's permission requests in the browser's place.
#ifndef MPBP_PLUGIN_MPBP_COMMON_FORGEDTEXT_H_
#define MPBP_PLUGIN_MPBP_COMMON_FORGEDTEXT_H_

#include <string_view>

namespace mpbp {

// Whether the text holds "mpbp-request-permission-result" anywhere, as it stands or written with
// JSON's escapes. Looks at the text, not at its JSON: what one reader refuses another may accept.
[[nodiscard]] bool IsForgedPermissionResult(std::string_view text);

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_FORGEDTEXT_H_
