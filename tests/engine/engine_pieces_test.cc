// The stand-in engine's JSON, URLs and switches.
#include <gtest/gtest.h>

#include <string>

#include "engine/json.h"
#include "engine/mode.h"
#include "engine/requests.h"

namespace mpbp::engine {
namespace {

std::string Joined(const char* url) {
  const std::optional<UrlParts> parts = ParseUrl(url);
  if (!parts) return "";
  return parts->proto + " " + parts->host + " " + std::to_string(parts->port) + " " + parts->path;
}

TEST(EnginePiecesTest, UrlsAreTakenApart) {
  EXPECT_EQ(Joined("https://host.example/a/b?c=d"), "https host.example 443 /a/b?c=d");
  EXPECT_EQ(Joined("HTTP://h:8080"), "HTTP h 8080 /");
  EXPECT_EQ(Joined("http://[::1]:81/x#part"), "http [::1] 81 /x");
  EXPECT_EQ(Joined("http://[::1]"), "http [::1] 80 /");
  EXPECT_EQ(Joined("http://h?q:1"), "http h 80 /?q:1");
  for (const char* const url : {"", "host", "ftp://h/", "http://", "http://:80/", "http://h:/",
                                "http://h:0/", "http://h:65536/", "http://h:8x/", "http://u@h/",
                                "http://u:p@h/", "http://[::1/", "http://[::1]x/"}) {
    EXPECT_EQ(Joined(url), "") << url;
  }
}

TEST(EnginePiecesTest, OnlyArraysThatBeginWithAStringAreMessages) {
  for (const char* const text : {"", "x", "{}", "[]", "[1]", "null", "[\"a\"", "[[\"a\"]]"}) {
    EXPECT_FALSE(ParseMessage(text)) << text;
  }
  EXPECT_FALSE(ParseMessage("[\"a\"," + std::string(100'000, '[')));
  EXPECT_FALSE(ParseMessage(std::string("[\"a\0", 4)));
  EXPECT_TRUE(ParseMessage("[\"a\",\xFF]") == std::nullopt);
  EXPECT_TRUE(ParseMessage(" [\"a\",{\"b\":[]}] "));
}

TEST(EnginePiecesTest, WordsThatThePluginActsOnStandAtTheBeginningOnly) {
  const std::string text =
      WriteMessage(MakeMessage("httprequest", "httprequest", "getproxyforurl", "httprequest"));
  EXPECT_EQ(text.rfind("\"httprequest\""), 1u);
  EXPECT_EQ(text.find("\"getproxyforurl\""), std::string::npos);
  const std::optional<Json::Value> message = ParseMessage(text);
  ASSERT_TRUE(message);
  EXPECT_EQ((*message)[2].asString(), "getproxyforurl");
  EXPECT_EQ((*message)[3].asString(), "httprequest");
}

TEST(EnginePiecesTest, SwitchesAreKnownOrRefused) {
  EXPECT_EQ(ModeFromName(""), Mode::kNormal);
  EXPECT_EQ(ModeFromName("bad-cookie"), Mode::kBadCookie);
  EXPECT_EQ(ModeFromName("Bad-Cookie"), std::nullopt);
  EXPECT_EQ(IdleSecondsFromText(""), kDefaultIdleSeconds);
  EXPECT_EQ(IdleSecondsFromText("1"), 1);
  for (const char* const text : {"0", "-1", "86401", "1s", " 1", "99999999999999999999"}) {
    EXPECT_EQ(IdleSecondsFromText(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace mpbp::engine
