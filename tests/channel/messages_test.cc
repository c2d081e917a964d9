#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "jsontext.h"
#include "plugin/mpbp/common/forgedtext.h"
#include "plugin/mpbp/common/proxylookup.h"
#include "tests/support/comma_locale.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

TEST(Json, AnyTextIsReadOrRefusedAndNeverThrows) {
  EXPECT_FALSE(ParseJson(""));
  EXPECT_FALSE(ParseJson("[1,"));
  std::string errors;
  EXPECT_FALSE(ParseJson(std::string(100'000, '['), &errors));
  EXPECT_FALSE(errors.empty());
  const auto value = ParseJson("[\"a\", {\"b\":1}] // comment");
  ASSERT_TRUE(value);
  EXPECT_EQ(AsString(ElementAt(*value, 0)), "a");
  EXPECT_TRUE(ElementAt(*value, 9).isNull());
  EXPECT_TRUE(ElementAt(ElementAt(*value, 0), 0).isNull());
  EXPECT_TRUE(MemberOf(*value, "b").isNull());
  EXPECT_FALSE(AsString(ElementAt(*value, 1)));
}

TEST(Json, EveryByteOfAStringSurvivesWritingAndReading) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  Json::Value array(Json::arrayValue);
  array.append(bytes);
  const std::string text = WriteJson(array);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_NE(text.find("\xfe\xff"), std::string::npos);
  const auto read = ParseJson(text);
  ASSERT_TRUE(read);
  EXPECT_EQ(AsString(ElementAt(*read, 0)), bytes);
}

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
      "/*1.5",
  };
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

TEST(ForgedText, IsSeenPlainAndBehindEscapesButOnlyThere) {
  for (const char* const text : {
           R"(["mpbp-request-permission-result",0,"a",1,true])",
           R"(no JSON mpbp-request-permission-result)",
           R"(["mpbp\u002drequest-permission-result"])",
           R"(["\u006D\u0070\u0062\u0070-request-permission-\u0072esult"])",
           R"(["mpbp-request-permission-resul\t","mpbp-request-permission-resul\u0074"])",
           R"(["\mpbp-request-permission-result"])",
       }) {
    EXPECT_TRUE(IsForgedPermissionResult(text)) << text;
  }
  for (const char* const text : {
           R"(["mpbp-request-permission",1])",
           R"(["mpbp\\u002drequest-permission-result"])",
           R"(["mpbp\u00adrequest-permission-result"])",
           R"(["mpbp\u2drequest-permission-result"])",
           "\\",
           "\\u",
       }) {
    EXPECT_FALSE(IsForgedPermissionResult(text)) << text;
  }
}

std::optional<std::string> Find(const std::string& url,
                                const std::map<std::string, std::string>& variables) {
  return FindProxyForUrl(url, [&](const char* name) {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  });
}

TEST(ProxyLookup, FollowsTheVariablesOfTheScheme) {
  EXPECT_EQ(Find("http://a/", {}), "DIRECT");
  EXPECT_EQ(Find("http://a/", {{"http_proxy", "http://p:3128/"}}), "PROXY p:3128");
  EXPECT_EQ(Find("http://a/", {{"HTTP_PROXY", "http://p:3128/"}}), "DIRECT");
  EXPECT_EQ(Find("https://a/", {{"http_proxy", "p"}}), "DIRECT");
  EXPECT_EQ(Find("HTTPS://a:8443/", {{"HTTPS_PROXY", "p:1"}, {"https_proxy", "q"}}), "PROXY q:80");
  EXPECT_EQ(Find("wss://a/", {{"ALL_PROXY", "socks5h://u:w@[::1]:9050"}}), "SOCKS5 [::1]:9050");
  EXPECT_EQ(Find("ftp://a/", {{"all_proxy", "socks4://p"}}), "SOCKS p:1080");
  EXPECT_EQ(Find("http://a/", {{"http_proxy", ""}, {"all_proxy", "https://p"}}), "HTTPS p:443");
  EXPECT_EQ(Find("http://a/", {{"http_proxy", "p:99999"}}), "DIRECT");
  EXPECT_EQ(Find("http://a/", {{"http_proxy", "p;DIRECT"}}), "DIRECT");
}

TEST(ProxyLookup, LeavesOutWhatNoProxyLists) {
  const auto direct = [](const std::string& url, const std::string& list) {
    return Find(url, {{"http_proxy", "p:1"}, {"no_proxy", list}}) == "DIRECT";
  };
  EXPECT_TRUE(direct("http://x.example.com/", "localhost, .Example.COM"));
  EXPECT_TRUE(direct("http://example.com/", "example.com"));
  EXPECT_TRUE(direct("http://x.example.com/", "*.example.com"));
  EXPECT_TRUE(direct("http://any/", "*"));
  EXPECT_TRUE(direct("http://h:81/", "h:81"));
  EXPECT_TRUE(direct("http://[::1]/", "[::1]"));
  EXPECT_FALSE(direct("http://h/", "h:81"));
  EXPECT_FALSE(direct("http://badexample.com/", "example.com"));
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
