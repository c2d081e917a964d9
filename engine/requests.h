// Pieces of the page's requests that stand alone.
#ifndef MPBP_ENGINE_REQUESTS_H_
#define MPBP_ENGINE_REQUESTS_H_

#include <optional>
#include <string>
#include <string_view>

namespace mpbp::engine {

// So that no page makes the engine eat the machine; what is beyond is echoed as malformed.
inline constexpr int kMaxDelayMs = 60'000;
inline constexpr int kMaxCount = 10'000;
inline constexpr int kMaxBytes = 64 << 20;  // of all the texts that one request brings
inline constexpr int kMaxPending = 100;     // of each kind, for one client

struct UrlParts {
  std::string proto;  // as it is written
  std::string host;   // in brackets for an IPv6 address
  int port;           // 80 or 443 where none is written
  std::string path;   // begins with '/'; with the query
};

// An http or https URL. Nothing for any other text.
std::optional<UrlParts> ParseUrl(std::string_view url);

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_REQUESTS_H_
