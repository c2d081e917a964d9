// Which pages the plug-in serves.
#ifndef MPBP_PLUGIN_ALLOWLIST_H_
#define MPBP_PLUGIN_ALLOWLIST_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace mpbp {

// An http or https URL in its parts, as they stand in the text: nothing is decoded or lower-cased.
// Of any other URL the host is empty, and the rest is as below.
struct ParsedUrl {
  std::string host;
  uint16_t port = 80;
  bool secure = false;  // https
  std::string path = "/";
  std::string query;  // with its "?"
};

// The text ends at a NUL. A port that is not a number is 0; a larger one is cut to 16 bits.
ParsedUrl ParseUrl(std::string_view url);

// Whether pages from the standard hosts must come over https. For the whole process; false until
// it is set. From any thread.
void SetRequireSecureStandardHosts(bool required);

// Whether the page at `url` may use the plug-in: it comes from a standard host, or, when the option
// "plugin_enable_corp_host" is not 0, from a corporate host, over either scheme. Reads the options
// file each time. A standard host's pattern has no dot boundary: any host that ends with its name
// matches.
[[nodiscard]] bool IsAllowedUrl(const std::string& url);

}  // namespace mpbp

#endif  // MPBP_PLUGIN_ALLOWLIST_H_
