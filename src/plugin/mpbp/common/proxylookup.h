// Proxy look-ups for the engine, from the environment's usual variables.
#ifndef MPBP_PLUGIN_MPBP_COMMON_PROXYLOOKUP_H_
#define MPBP_PLUGIN_MPBP_COMMON_PROXYLOOKUP_H_

#include <functional>
#include <optional>
#include <string>

namespace mpbp {

// Gives a variable's value, or null when it is not set.
using EnvironmentReader = std::function<const char*(const char* name)>;

// The proxy for `url`, as a proxy script would answer: "DIRECT", "PROXY host:port", "HTTPS
// host:port", "SOCKS host:port" or "SOCKS5 host:port". Nothing when `url` is not a URL with a host.
//
// From http_proxy for http and ws, https_proxy for https and wss, and all_proxy where these say
// nothing; not for hosts that no_proxy lists. The upper-case names count too, except HTTP_PROXY:
// where requests from outside become variables, a "Proxy:" header sets it.
std::optional<std::string> FindProxyForUrl(const std::string& url,
                                           const EnvironmentReader& environment);

// Answers the engine's ["getproxyforurl", id, url] with ["proxyforurl", id, result]. False for a
// request that cannot be understood.
[[nodiscard]] bool AnswerProxyRequest(const std::string& request, std::string* reply);

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_PROXYLOOKUP_H_
