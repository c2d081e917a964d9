#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "jsontext.h"
#include "plugin/mpbp/common/proxylookup.h"
#include "tests/support/comma_locale.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

TEST(Json, NumbersAreThoseOfJsonInEveryLocale) {
  const std::vector<std::string> texts = {
      "[1.5,-0.25,1234.5,123456789,0.001]",
      "[1.5e3,1.5E+3,2.5e-2,1e3,12345678901234567890123.0,1.5e400]",
      R"({"a.1":"1.5 \"2.5","b":[1.0,/* 3.5 " */4.5]} // 5.5)",
      "[\"a\",1.0,7]",
      "[.5]",
      "[1.5e+-3]",
      "[1.2.3]",
      "[1.]",
      "[1.5",
      "1.",
      ".",
      "\"1.5",
      "/*1.5"};
  const auto read_all = [&] {
    std::vector<std::string> results;
    for (const std::string& text : texts) {
      const auto value = ParseJson(text);
      results.push_back(value ? WriteJson(*value) : "refused");
    }
    return results;
  };
  const std::vector<std::string> expected = read_all();
  EXPECT_EQ(expected[3], "[\"a\",1.0,7]");
  const test::CommaLocale locale;
  EXPECT_EQ(read_all(), expected);
}

TEST(ProxyLookup, FollowsTheVariablesOfTheSchemeButForWhatNoProxyLists) {
  using Variables = std::map<std::string, std::string>;
  const std::tuple<const char*, Variables, const char*> cases[] = {
      {"http://a/", {}, "DIRECT"},
      {"http://a/", {{"http_proxy", "http://p:3128/"}}, "PROXY p:3128"},
      {"http://a/", {{"HTTP_PROXY", "http://p:3128/"}}, "DIRECT"},
      {"https://a/", {{"http_proxy", "p"}}, "DIRECT"},
      {"HTTPS://a:8443/", {{"HTTPS_PROXY", "p:1"}, {"https_proxy", "q"}}, "PROXY q:80"},
      {"wss://a/", {{"ALL_PROXY", "socks5h://u:w@[::1]:9050"}}, "SOCKS5 [::1]:9050"},
      {"ftp://a/", {{"all_proxy", "socks4://p"}}, "SOCKS p:1080"},
      {"http://a/", {{"http_proxy", ""}, {"all_proxy", "https://p"}}, "HTTPS p:443"},
      {"http://a/", {{"http_proxy", "p:99999"}}, "DIRECT"},
      {"http://a/", {{"http_proxy", "p;DIRECT"}}, "DIRECT"},
      {"http://x.a.b/", {{"http_proxy", "p:1"}, {"no_proxy", "localhost, .A.B"}}, "DIRECT"},
      {"http://x.a.b/", {{"http_proxy", "p:1"}, {"no_proxy", "*.a.b"}}, "DIRECT"},
      {"http://bada.b/", {{"http_proxy", "p:1"}, {"no_proxy", "a.b"}}, "PROXY p:1"},
      {"http://h:81/", {{"http_proxy", "p:1"}, {"no_proxy", "h:81"}}, "DIRECT"},
      {"http://h/", {{"http_proxy", "p:1"}, {"no_proxy", "h:81"}}, "PROXY p:1"},
      {"http://[::1]/", {{"http_proxy", "p:1"}, {"no_proxy", "[::1]"}}, "DIRECT"}};
  for (const auto& [url, variables, answer] : cases) {
    const auto find = [&, &set = variables](const char* name) {
      const auto found = set.find(name);
      return found == set.end() ? nullptr : found->second.c_str();
    };
    EXPECT_EQ(FindProxyForUrl(url, find), answer) << url;
  }
}

TEST(ProxyLookup, AnswersRequestsAndRefusesWhatIsNone) {
  const test::ScopedEnv proxy("http_proxy", "http://p:3128");
  const test::ScopedEnv none("no_proxy", nullptr);
  const test::ScopedEnv none_upper("NO_PROXY", nullptr);
  std::string reply;
  ASSERT_TRUE(AnswerProxyRequest(R"(["getproxyforurl",{"b":[1],"a":null},"http://h/"])", &reply));
  EXPECT_EQ(reply, R"(["proxyforurl",{"a":null,"b":[1]},"PROXY p:3128"])");
  for (const char* const text :
       {R"(["getproxyforurl"])", R"(["getproxyforurl",1])", R"(["getproxyforurl",1,2])",
        R"(["getproxyforurl",1,"no url"])", R"(["getproxyforurl",1,"http://"])",
        R"(["other","getproxyforurl","http://h/"])", R"({"getproxyforurl":1})",
        R"("getproxyforurl")", R"(["getproxyforurl")"}) {
    EXPECT_FALSE(AnswerProxyRequest(text, &reply)) << text;
  }
}

}  // namespace
}  // namespace mpbp
