#include "plugin/mpbp/common/proxylookup.h"

#include <cstdlib>
#include <string_view>

#include "base/stringutils.h"
#include "jsontext.h"

namespace mpbp {
namespace {

constexpr char kDirect[] = "DIRECT";

// A URL's or a proxy's parts; the scheme and the host in lower case.
struct Endpoint {
  std::string scheme;  // empty when there is none
  std::string host;    // an IPv6 address in its brackets
  std::string port;    // digits, empty when there is none
};

bool IsPort(std::string_view text) {
  return !text.empty() && text.size() <= 5 &&
         text.find_first_not_of("0123456789") == std::string_view::npos &&
         std::stoi(std::string(text)) <= 65535;
}

// [scheme://][user@]host[:port][/anything]. Nothing without a host, or with an invalid port.
std::optional<Endpoint> ParseEndpoint(std::string_view text) {
  Endpoint result;
  if (const size_t mark = text.find("://"); mark != std::string_view::npos) {
    result.scheme = LowerCase(text.substr(0, mark));
    if (result.scheme.empty()) return std::nullopt;
    text.remove_prefix(mark + 3);
  }
  text = text.substr(0, text.find_first_of("/?#"));
  if (const size_t at = text.rfind('@'); at != std::string_view::npos) text.remove_prefix(at + 1);
  const size_t bracket = text.starts_with('[') ? text.find(']') : 0;
  if (bracket == std::string_view::npos) return std::nullopt;
  const size_t colon = text.find(':', bracket);
  result.host = LowerCase(text.substr(0, colon));
  if (colon != std::string_view::npos) {
    result.port = text.substr(colon + 1);
    if (!result.port.empty() && !IsPort(result.port)) return std::nullopt;
  }
  // What stands in a proxy script's answer must stay one word of it.
  if (result.host.empty() || result.host.find_first_of(" \t\r\n;,") != std::string::npos) {
    return std::nullopt;
  }
  return result;
}

std::string_view FirstSet(const EnvironmentReader& environment,
                          std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    const char* const value = environment(name);
    if (value && *value) return value;
  }
  return {};
}

std::string DefaultPort(const std::string& scheme) {
  if (scheme == "http" || scheme == "ws") return "80";
  if (scheme == "https" || scheme == "wss") return "443";
  return {};
}

// "example.com" and ".example.com" stand for the host and all below it.
bool EntryMatches(std::string_view entry, const Endpoint& target) {
  if (entry == "*") return true;
  const std::optional<Endpoint> pattern = ParseEndpoint(entry);
  if (!pattern) return false;
  const std::string port = target.port.empty() ? DefaultPort(target.scheme) : target.port;
  if (!pattern->port.empty() && pattern->port != port) return false;
  std::string_view domain = pattern->host;
  if (domain.starts_with("*.")) domain.remove_prefix(1);
  if (domain.starts_with('.')) domain.remove_prefix(1);
  const std::string_view host = target.host;
  if (host == domain) return true;
  return host.size() > domain.size() && host.ends_with(domain) &&
         host[host.size() - domain.size() - 1] == '.';
}

bool IsListed(std::string_view list, const Endpoint& target) {
  constexpr std::string_view kSeparators = ", \t";
  for (;;) {
    const size_t begin = list.find_first_not_of(kSeparators);
    if (begin == std::string_view::npos) return false;
    list.remove_prefix(begin);
    const size_t end = list.find_first_of(kSeparators);
    if (EntryMatches(list.substr(0, end), target)) return true;
    if (end == std::string_view::npos) return false;
    list.remove_prefix(end);
  }
}

// A proxy variable's value as a proxy script's answer; direct when it names no proxy.
std::string DescribeProxy(std::string_view value) {
  const std::optional<Endpoint> proxy = ParseEndpoint(value);
  if (!proxy) return kDirect;
  const char* kind = "PROXY";
  const char* port = "80";
  if (proxy->scheme == "https") {
    kind = "HTTPS";
    port = "443";
  } else if (proxy->scheme == "socks4" || proxy->scheme == "socks4a") {
    kind = "SOCKS";
    port = "1080";
  } else if (proxy->scheme.starts_with("socks")) {
    kind = "SOCKS5";
    port = "1080";
  } else if (!proxy->scheme.empty() && proxy->scheme != "http") {
    return kDirect;
  }
  return std::string(kind) + " " + proxy->host + ":" + (proxy->port.empty() ? port : proxy->port);
}

}  // namespace

std::optional<std::string> FindProxyForUrl(const std::string& url,
                                           const EnvironmentReader& environment) {
  const std::optional<Endpoint> target = ParseEndpoint(url);
  if (!target || target->scheme.empty()) return std::nullopt;
  std::string_view proxy;
  if (target->scheme == "http" || target->scheme == "ws") {
    proxy = FirstSet(environment, {"http_proxy"});
  } else if (target->scheme == "https" || target->scheme == "wss") {
    proxy = FirstSet(environment, {"https_proxy", "HTTPS_PROXY"});
  }
  if (proxy.empty()) proxy = FirstSet(environment, {"all_proxy", "ALL_PROXY"});
  if (proxy.empty() || IsListed(FirstSet(environment, {"no_proxy", "NO_PROXY"}), *target)) {
    return kDirect;
  }
  return DescribeProxy(proxy);
}

bool AnswerProxyRequest(const std::string& request, std::string* reply) {
  const std::optional<Json::Value> message = ParseJson(request);
  if (!message || message->size() < 3 || AsString(ElementAt(*message, 0)) != "getproxyforurl") {
    return false;
  }
  const std::optional<std::string> url = AsString(ElementAt(*message, 2));
  if (!url) return false;
  const std::optional<std::string> proxy =
      FindProxyForUrl(*url, [](const char* name) { return getenv(name); });
  if (!proxy) return false;
  Json::Value answer(Json::arrayValue);
  answer.append("proxyforurl");
  answer.append(ElementAt(*message, 1));
  answer.append(*proxy);
  *reply = WriteJson(answer);
  return !reply->empty();
}

}  // namespace mpbp
