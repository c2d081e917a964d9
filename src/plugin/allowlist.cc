#include "plugin/allowlist.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "base/stringutils.h"
#include "deployment.h"
#include "optionspersistence.h"

namespace mpbp {
namespace {

std::atomic<bool> require_secure_standard_hosts{false};

template <size_t N>
bool MatchesAny(std::string_view host, const char* const (&patterns)[N]) {
  return std::any_of(std::begin(patterns), std::end(patterns),
                     [host](const char* pattern) { return MatchesWildcard(host, pattern); });
}

bool CorporateHostsEnabled() {
  int32_t enabled = 0;
  return CreateOptionsPersistence()->GetIntValue("plugin_enable_corp_host", &enabled) &&
         enabled != 0;
}

// Splits what stands between the scheme and the first '/'.
void ParseAuthority(std::string_view authority, ParsedUrl* parsed) {
  const size_t user_end = authority.find('@');
  if (user_end != std::string_view::npos) authority.remove_prefix(user_end + 1);
  const size_t colon = authority.find(':');
  parsed->host = authority.substr(0, colon);
  if (colon == std::string_view::npos) {
    parsed->port = parsed->secure ? 443 : 80;
  } else {
    const std::string port(authority.substr(colon + 1));
    parsed->port = static_cast<uint16_t>(strtoul(port.c_str(), nullptr, 10));
  }
}

}  // namespace

ParsedUrl ParseUrl(std::string_view url) {
  constexpr std::string_view kHttp = "http://";
  constexpr std::string_view kHttps = "https://";
  ParsedUrl parsed;
  url = url.substr(0, url.find('\0'));
  if (StartsWithIgnoreCase(url, kHttp)) {
    url.remove_prefix(kHttp.size());
  } else if (StartsWithIgnoreCase(url, kHttps)) {
    parsed.secure = true;
    url.remove_prefix(kHttps.size());
  } else {
    return parsed;
  }
  const size_t slash = std::min(url.find('/'), url.size());
  ParseAuthority(url.substr(0, slash), &parsed);
  const std::string_view rest = url.substr(slash);
  const size_t question = std::min(rest.find('?'), rest.size());
  if (question > 0) parsed.path = rest.substr(0, question);
  parsed.query = rest.substr(question);
  return parsed;
}

void SetRequireSecureStandardHosts(bool required) { require_secure_standard_hosts = required; }

bool IsAllowedUrl(const std::string& url) {
  const ParsedUrl parsed = ParseUrl(url);
  if (MatchesAny(parsed.host, kStandardHostPatterns)) {
    return parsed.secure || !require_secure_standard_hosts;
  }
  return CorporateHostsEnabled() && MatchesAny(parsed.host, kCorpHostPatterns);
}

}  // namespace mpbp
