// The addresses of pages, and the host patterns. Input: an address, a line feed, a pattern.
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/filesystem.h"
#include "base/stringutils.h"
#include "deployment.h"
#include "fuzz/fuzz.h"
#include "plugin/allowlist.h"

namespace mpbp::fuzz {
namespace {

// Two users' folders: one has the corporate hosts enabled.
class Folders {
 public:
  Folders() {
    std::string name = (std::filesystem::temp_directory_path() / "mpbp_fuzz_XXXXXX").string();
    FUZZ_CHECK(mkdtemp(name.data()));
    folder_ = name;
    for (const bool corporate : {false, true}) {
      Use(corporate);
      Pathname path;
      FUZZ_CHECK(Filesystem::GetAppDataFolder(&path, true));
      path.SetFilename("options");
      std::ofstream(path.pathname()) << "plugin_enable_corp_host=" << corporate << "\n";
    }
  }
  Folders(const Folders&) = delete;
  Folders& operator=(const Folders&) = delete;
  ~Folders() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  void Use(bool corporate) const {
    setenv("XDG_CONFIG_HOME", (folder_ + (corporate ? "/corporate" : "/plain")).c_str(), 1);
  }

 private:
  std::string folder_;
};

struct Address {
  bool served;  // http or https
  bool secure;
  std::string host;
  unsigned long port;  // cut to 16 bits
  std::string rest;
};

Address ReadPlainly(const char* url) {
  Address address{true, strncasecmp(url, "https://", 8) == 0, {}, 80, "/"};
  if (!address.secure && strncasecmp(url, "http://", 7) != 0) {
    address.served = false;
    return address;
  }
  const char* const start = url + (address.secure ? 8 : 7);
  std::string authority(start, strcspn(start, "/"));
  address.rest = start + authority.size();
  if (address.rest.empty() || address.rest[0] != '/') address.rest = "/" + address.rest;
  if (const char* at = strchr(authority.c_str(), '@')) authority = std::string(at + 1);
  address.host = authority.substr(0, strcspn(authority.c_str(), ":"));
  address.port = address.secure ? 443 : 80;
  if (address.host.size() < authority.size()) {
    address.port = strtoul(authority.c_str() + address.host.size() + 1, nullptr, 10) & 0xFFFF;
  }
  return address;
}

bool EndsWith(const std::string& host, const std::string& end) {
  return host.size() >= end.size() &&
         strcasecmp(host.c_str() + host.size() - end.size(), end.c_str()) == 0;
}

template <size_t N>
bool EndsWithAny(const std::string& host, const char* const (&patterns)[N]) {
  return std::any_of(std::begin(patterns), std::end(patterns),
                     [&host](const char* pattern) { return EndsWith(host, pattern + 1); });
}

// As it is explained to people, and slow.
bool Matches(const char* text, const char* pattern) {
  if (!*pattern) return !*text;
  if (*pattern != '*') {
    return *text && strncasecmp(text, pattern, 1) == 0 && Matches(text + 1, pattern + 1);
  }
  if (!pattern[1]) return true;
  for (; *text; ++text) {
    if (strncasecmp(text, pattern + 1, 1) == 0 && Matches(text + 1, pattern + 2)) return true;
  }
  return false;
}

void CheckAllowed(const std::string& url, const Address& address) {
  static const Folders folders;
  const bool standard = EndsWithAny(address.host, kStandardHostPatterns);
  const bool corporate = EndsWithAny(address.host, kCorpHostPatterns);
  SetRequireSecureStandardHosts(true);
  for (const bool enabled : {false, true}) {
    folders.Use(enabled);
    FUZZ_CHECK(IsAllowedUrl(url) == (standard ? address.secure : enabled && corporate));
  }
  SetRequireSecureStandardHosts(false);
  FUZZ_CHECK(IsAllowedUrl(url) == (standard || corporate));
}

}  // namespace

void TestInput(std::string_view input) {
  const std::vector<std::string> fields = SplitFields(input, 2);
  const std::string& url = fields[0];
  const Address expected = ReadPlainly(url.c_str());
  const ParsedUrl parsed = ParseUrl(url);
  FUZZ_CHECK(parsed.secure == expected.secure);
  FUZZ_CHECK(parsed.host == expected.host);
  FUZZ_CHECK(parsed.port == expected.port);
  FUZZ_CHECK(expected.served ? parsed.path + parsed.query == expected.rest : parsed.path == "/");
  FUZZ_CHECK(parsed.query.empty() || parsed.query[0] == '?');
  FUZZ_CHECK(parsed.path[0] == '/' && parsed.path.find('?') == std::string::npos);
  CheckAllowed(url, expected);

  const std::string pattern = fields[1].substr(0, fields[1].find('\0'));
  if (std::count(pattern.begin(), pattern.end(), '*') > 4 || expected.host.size() > 60) return;
  FUZZ_CHECK(MatchesWildcard(expected.host, pattern) ==
             Matches(expected.host.c_str(), pattern.c_str()));
}

}  // namespace mpbp::fuzz
