// hosts, proxy.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "deployment.h"
#include "doctor/checks.h"
#include "plugin/allowlist.h"
#include "plugin/mpbp/common/proxylookup.h"

namespace mpbp::doctor {
namespace {

constexpr const char* kProxyVariables[] = {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                           "ALL_PROXY"};
constexpr char kDirect[] = "DIRECT";

template <size_t N>
std::string Joined(const char* const (&patterns)[N]) {
  std::string text;
  for (const char* const pattern : patterns)
    text += (text.empty() ? "" : " ") + std::string(pattern);
  return text;
}

bool CorporateHosts(const Setup& setup) {
  int32_t enabled = 0;
  return setup.options.GetIntValue("plugin_enable_corp_host", &enabled) && enabled != 0;
}

bool MatchesCorporateHost(const std::string& host) {
  for (const char* const pattern : kCorpHostPatterns) {
    if (host.ends_with(pattern + 1)) return true;
  }
  return false;
}

// The address without what may be secret in it: user, password and query.
std::string ShownUrl(const std::string& url) {
  const ParsedUrl parsed = ParseUrl(url);
  if (parsed.host.empty()) return url.substr(0, url.find_first_of("?#"));
  return (parsed.secure ? "https://" : "http://") + parsed.host +
         parsed.path.substr(0, parsed.path.find('#'));
}

CheckResult Refusal(const Setup& setup, const std::string& whole_url) {
  const ParsedUrl parsed = ParseUrl(whole_url);
  const std::string url = ShownUrl(whole_url);
  if (parsed.host.empty()) {
    return Fault(url + " is not served: it is no http or https address with a host",
                 "Open the page from a web server.");
  }
  if (!parsed.secure && IsAllowedUrl("https://" + parsed.host + "/")) {
    return Fault(url + " is not served: " + parsed.host + " is served over https only",
                 "Open it with https.");
  }
  if (!CorporateHosts(setup) && MatchesCorporateHost(parsed.host)) {
    return Fault(url + " is not served: " + parsed.host + " is in a corporate domain",
                 "Set plugin_enable_corp_host=1 in " + setup.folder + kOptionsName + ".");
  }
  return Fault(url + " is not served: " + parsed.host + " is none of the hosts",
               "The hosts are set when the plug-in is built; README says how.");
}

// What the variable alone would answer for an https page; it never holds a password.
std::string AnswerOf(const char* variable) {
  const bool http = strcmp(variable, "http_proxy") == 0;
  return FindProxyForUrl(http ? "http://a.example/" : "https://a.example/",
                         [variable](const char* name) -> const char* {
                           return strcmp(name, variable) == 0 ? getenv(variable) : nullptr;
                         })
      .value_or(kDirect);
}

bool IsSet(const char* variable) {
  const char* const value = getenv(variable);
  return value && *value;
}

}  // namespace

std::string FirstServedHost() {
  std::string_view pattern = kStandardHostPatterns[0];
  while (pattern.starts_with('*')) pattern.remove_prefix(1);
  return std::string(pattern);
}

CheckResult CheckHosts(const Setup& setup, PrivateFolder& folder, const std::string& url) {
  SetRequireSecureStandardHosts(true);
  if (url.empty()) {
    return Ok("served over https: " + Joined(kStandardHostPatterns) + "; " +
              (CorporateHosts(setup) ? "and, over http too: " : "not served, by the options: ") +
              Joined(kCorpHostPatterns));
  }
  // The allow-list reads the options, and would make their folder.
  if (!folder.Make(setup)) return Skipped(folder.error());
  return IsAllowedUrl(url) ? Ok(ShownUrl(url) + " is served") : Refusal(setup, url);
}

CheckResult CheckProxy() {
  CheckResult result;
  for (const char* const variable : kProxyVariables) {
    if (IsSet(variable) && AnswerOf(variable) == kDirect) {
      result.AddFault(
          std::string(variable) + " names no proxy that can be used: engines are told DIRECT",
          "Write http://HOST:PORT, https://HOST:PORT or socks5://HOST:PORT.");
    }
  }
  if (IsSet("HTTP_PROXY") && !IsSet("http_proxy")) {
    result.AddWarning("HTTP_PROXY does not count", "Set http_proxy.");
  }
  if (result.status != CheckStatus::SKIPPED) return result;
  const auto environment = [](const char* name) -> const char* { return getenv(name); };
  const std::string host = FirstServedHost();
  return Ok("engines are told: " +
            FindProxyForUrl("https://" + host + "/", environment).value_or("") + " for https, " +
            FindProxyForUrl("http://" + host + "/", environment).value_or("") + " for http");
}

}  // namespace mpbp::doctor
