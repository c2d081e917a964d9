// What the stand-in engine is made of, without its process.
#include <gtest/gtest.h>

#include <string>

#include "engine/json.h"
#include "engine/mode.h"
#include "engine/requests.h"

namespace mpbp::engine {
namespace {

TEST(EnginePiecesTest, UrlsAndSwitchesAreKnownOrRefused) {
  const auto joined = [](const char* url) {
    const auto parts = ParseUrl(url).value_or(UrlParts{"", "", 0, ""});
    return parts.proto + " " + parts.host + " " + std::to_string(parts.port) + " " + parts.path;
  };
  EXPECT_EQ(joined("https://host.example/a/b?c=d"), "https host.example 443 /a/b?c=d");
  EXPECT_EQ(joined("HTTP://h:8080"), "HTTP h 8080 /");
  EXPECT_EQ(joined("http://[::1]:81/x#part"), "http [::1] 81 /x");
  EXPECT_EQ(joined("http://h?q:1"), "http h 80 /?q:1");
  for (const char* const url : {"", "host", "ftp://h/", "http://", "http://:80/", "http://h:/",
                                "http://h:0/", "http://h:65536/", "http://h:8x/", "http://u@h/",
                                "http://u:p@h/", "http://[::1/", "http://[::1]x/"}) {
    EXPECT_FALSE(ParseUrl(url)) << url;
  }
  EXPECT_EQ(ModeFromName("Bad-Cookie"), std::nullopt);
  EXPECT_EQ(IdleSecondsFromText(""), kDefaultIdleSeconds);
  for (const char* const text : {"0", "-1", "86401", "1s", " 1", "99999999999999999999"}) {
    EXPECT_EQ(IdleSecondsFromText(text), std::nullopt) << text;
  }
}

TEST(EnginePiecesTest, WritingManyWordsOfThePluginTakesNoLongerThanManyLetters) {
  std::string many;
  while (many.size() < 4'000'000) many += "\"qw\"";
  EXPECT_EQ(WriteMessage(MakeMessage("", many)).size(), 5 + many.size() / 4 * 11 + 2);
}

}  // namespace
}  // namespace mpbp::engine
