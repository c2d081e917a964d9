#include "plugin/allowlist.h"

#include <gtest/gtest.h>

#include "deployment.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::ScopedAppData;

class AllowlistTest : public testing::Test {
 protected:
  AllowlistTest() { SetRequireSecureStandardHosts(true); }
  ~AllowlistTest() override { SetRequireSecureStandardHosts(false); }

  ScopedAppData app_data_;
  // Patterns begin with "*" and "*.".
  const std::string standard_ = std::string(kStandardHostPatterns[0]).substr(1);
  const std::string corp_ = std::string(kCorpHostPatterns[3]).substr(2);
};

TEST_F(AllowlistTest, StandardHostsAreServedOverHttps) {
  for (const char* pattern : kStandardHostPatterns) {
    const std::string host = std::string(pattern).substr(1);
    EXPECT_TRUE(IsAllowedUrl("https://" + host + "/page?x")) << host;
    EXPECT_TRUE(IsAllowedUrl("https://" + host)) << host;
    EXPECT_FALSE(IsAllowedUrl("http://" + host + "/")) << host;
  }
  std::string capitals = "https://" + standard_ + "/";
  for (char& c : capitals) c = static_cast<char>(toupper(c));
  EXPECT_TRUE(IsAllowedUrl(capitals));
  EXPECT_TRUE(IsAllowedUrl("https://" + standard_ + ":1/"));
  EXPECT_TRUE(IsAllowedUrl("https://user:secret@" + standard_ + "/"));
  EXPECT_TRUE(IsAllowedUrl("https://evil" + standard_ + "/"));  // no dot boundary
  SetRequireSecureStandardHosts(false);
  EXPECT_TRUE(IsAllowedUrl("http://" + standard_ + "/"));
}

TEST_F(AllowlistTest, OtherHostsAreNot) {
  for (const std::string& url :
       {std::string(), std::string("https://"), std::string("https:///") + standard_,
        "https://" + standard_ + "@other.example/", "https://" + standard_ + ".other.example/",
        "https://" + standard_ + "./", "https://other.example/" + standard_,
        "https://other.example\\@x/" + standard_, "ftp://" + standard_ + "/",
        "file:///" + standard_, " https://" + standard_ + "/",
        "https://x" + std::string(1, '\0') + standard_ + "/"}) {
    EXPECT_FALSE(IsAllowedUrl(url)) << url;
  }
}

TEST_F(AllowlistTest, CorporateHostsFollowTheOptionOverEitherScheme) {
  CapturedLog log;
  const std::string url = "http://a." + corp_ + "/";
  EXPECT_FALSE(IsAllowedUrl(url));
  EXPECT_TRUE(log.Contains("Error while loading options; some may be missing"));
  for (const char* off : {"0", "", "yes", "99999999999"}) {
    app_data_.WriteOptions("plugin_enable_corp_host=" + std::string(off) + "\n");
    EXPECT_FALSE(IsAllowedUrl(url)) << off;
  }
  app_data_.WriteOptions("plugin_enable_corp_host=-1\n");
  EXPECT_TRUE(IsAllowedUrl(url));
  EXPECT_TRUE(IsAllowedUrl("https://a.b." + corp_ + ":8443/"));
  EXPECT_FALSE(IsAllowedUrl("https://" + corp_ + "/"));
  EXPECT_FALSE(IsAllowedUrl("https://a" + corp_ + "/"));
  EXPECT_FALSE(IsAllowedUrl("https://a." + corp_ + "x/"));
  EXPECT_FALSE(IsAllowedUrl("http://" + standard_ + "/"));
}

TEST_F(AllowlistTest, UrlsAreSplitAsTheyStand) {
  const ParsedUrl url = ParseUrl("HTTPS://u:p@Host.Example:70000/a/b?q=/?x");
  EXPECT_EQ("Host.Example", url.host);
  EXPECT_EQ(70000 - 65536, url.port);
  EXPECT_EQ("/a/b", url.path);
  EXPECT_EQ("?q=/?x", url.query);
  EXPECT_EQ(443, ParseUrl("https://h").port);
  EXPECT_EQ("/", ParseUrl("https://h").path);
}

}  // namespace
}  // namespace mpbp
