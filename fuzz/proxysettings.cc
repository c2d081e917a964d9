// Proxy settings of the environment and addresses that the engine asks about. Input: the address,
// http_proxy, https_proxy, HTTPS_PROXY, all_proxy, ALL_PROXY, no_proxy and NO_PROXY, a line each.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

#include "base/stringutils.h"
#include "fuzz/choices.h"
#include "fuzz/fuzz.h"
#include "plugin/mpbp/common/proxylookup.h"

namespace mpbp::fuzz {
namespace {

using Variables = std::map<std::string, std::string>;

std::optional<std::string> Find(const std::string& url, const Variables& variables) {
  return FindProxyForUrl(url, [&variables](const char* name) {
    FUZZ_CHECK(strcmp(name, "HTTP_PROXY") != 0);
    const auto variable = variables.find(name);
    return variable == variables.end() ? nullptr : variable->second.c_str();
  });
}

// "DIRECT", or a kind, a blank, and one word of host and port that came from a variable.
void CheckAnswer(const std::string& answer, const Variables& variables) {
  if (answer == "DIRECT") return;
  const size_t blank = answer.find(' ');
  const size_t colon = answer.rfind(':');
  FUZZ_CHECK(blank != std::string::npos && colon != std::string::npos && blank < colon);
  const std::string kind = answer.substr(0, blank);
  FUZZ_CHECK(kind == "PROXY" || kind == "HTTPS" || kind == "SOCKS" || kind == "SOCKS5");
  const std::string host = answer.substr(blank + 1, colon - blank - 1);
  FUZZ_CHECK(!host.empty() && host.find_first_of(" \t\r\n;,/@?#") == std::string::npos);
  const std::string port = answer.substr(colon + 1);
  FUZZ_CHECK(!port.empty() && port.size() <= 5 &&
             port.find_first_not_of("0123456789") == std::string::npos && std::stoi(port) <= 65535);
  FUZZ_CHECK(std::any_of(variables.begin(), variables.end(), [&host](const auto& variable) {
    return LowerCase(variable.second).find(host) != std::string::npos;
  }));
}

// Of a text what may stand in a host name.
std::string HostName(const std::string& text) {
  std::string name;
  for (const char c : LowerCase(text)) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.') name += c;
  }
  return name.empty() ? "host" : name;
}

// Addresses and variables put together from known parts have a known answer.
void CheckPlainCase(const std::vector<std::string>& fields, Choices choices) {
  struct Scheme {
    const char* name;
    const char* kind;
    const char* port;
  };
  constexpr Scheme kSchemes[] = {{"", "PROXY", "80"},
                                 {"http://", "PROXY", "80"},
                                 {"HTTPS://", "HTTPS", "443"},
                                 {"socks4://", "SOCKS", "1080"},
                                 {"socks4a://", "SOCKS", "1080"},
                                 {"socks5h://", "SOCKS5", "1080"}};
  const Scheme& scheme = kSchemes[choices.Between(0, std::size(kSchemes) - 1)];
  const std::string port =
      choices.Between(0, 1) == 0 ? "" : std::to_string(choices.Between(1, 65535));
  const std::string proxy = HostName(fields[1]);
  const std::string host = HostName(fields[0]);

  std::string list;
  bool listed = false;
  for (size_t i = 2; i < fields.size(); ++i) {
    std::string entry = HostName(fields[i]);
    if (choices.Between(0, 1) == 0) entry = host.substr(choices.Between(0, host.size() - 1));
    list += (choices.Between(0, 3) == 0 ? "*." : "") + entry + (i % 2 == 0 ? ", " : "\t");
    const bool had_star =
        list.substr(0, list.size() - (i % 2 == 0 ? 2 : 1)).ends_with("*." + entry);
    if (!had_star && entry.starts_with('.')) entry.erase(0, 1);
    listed = listed || host == entry || host.ends_with("." + entry);
  }
  const bool secure = choices.Between(0, 1) == 0;
  const char* const variable = secure ? "HTTPS_PROXY" : "http_proxy";
  const std::string value =
      scheme.name + std::string("user:word@") + proxy + (port.empty() ? "" : ":" + port) + "/";
  const std::string url = (secure ? "wss://" : "http://") + host + ":8080/a?b@c";
  const std::string answer =
      listed ? "DIRECT"
             : std::string(scheme.kind) + " " + proxy + ":" + (port.empty() ? scheme.port : port);
  FUZZ_CHECK(Find(url, {{variable, value}, {"no_proxy", list}}) == answer);
}

}  // namespace

void TestInput(std::string_view input) {
  constexpr const char* kNames[] = {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                    "ALL_PROXY",  "no_proxy",    "NO_PROXY"};
  const std::vector<std::string> fields = SplitFields(input, 1 + std::size(kNames));
  Variables variables;
  for (size_t i = 0; i < std::size(kNames); ++i) {
    variables[kNames[i]] = fields[i + 1].substr(0, fields[i + 1].find('\0'));
  }
  const std::string& url = fields[0];
  const std::optional<std::string> answer = Find(url, variables);
  FUZZ_CHECK(answer || Find(url, {}) == std::nullopt);
  if (answer) CheckAnswer(*answer, variables);
  variables["no_proxy"] += ",*";
  FUZZ_CHECK(!answer || Find(url, variables) == "DIRECT");
  CheckPlainCase(fields, Choices(input));
}

}  // namespace mpbp::fuzz
