// The allow-list, the options, the port file and what is cut from the log.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>

#include "deployment.h"
#include "logutility.h"
#include "optionspersistence.h"
#include "plugin/allowlist.h"
#include "portfileutils.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::FileMode;
using test::ReadFile;
using test::WriteFile;

class SettingsTest : public testing::Test {
 protected:
  ~SettingsTest() override { SetRequireSecureStandardHosts(false); }
  bool Read(const std::string& port_file) { return ReadPortFile(port_file, &port_, &read_cookie_); }

  int port_ = 0;
  std::string read_cookie_;
  test::ScopedAppData app_data_;
  test::CapturedLog log_;
};

TEST_F(SettingsTest, PagesAreAllowedByTheHostAndTheSchemeOfTheirUrl) {
  // Patterns begin with "*" and "*.".
  const std::string standard = std::string(kStandardHostPatterns[0]).substr(1);
  const std::string corp = std::string(kCorpHostPatterns[3]).substr(2);
  const auto allowed = [&](const std::string& url) {  // S and C stand for the hosts
    const std::string with_standard = std::regex_replace(url, std::regex("S"), standard);
    return IsAllowedUrl(std::regex_replace(with_standard, std::regex("C"), corp));
  };
  SetRequireSecureStandardHosts(true);
  for (const char* pattern : kStandardHostPatterns) {
    EXPECT_TRUE(IsAllowedUrl("https://" + std::string(pattern).substr(1) + "/page?x")) << pattern;
  }
  for (const char* url :
       {"https://S", "Https://S:1/", "https://user:secret@S/", "https://evilS/"}) {
    EXPECT_TRUE(allowed(url)) << url;  // no dot boundary
  }
  for (const char* url :
       {"", "https://", "http://S/", "https:///S", "https://S@other.example/",
        "https://S.other.example/", "https://S./", "https://other.example/S",
        "https://other.example\\@x/S", "ftp://S/", "file:///S", " https://S/", "http://a.C/"}) {
    EXPECT_FALSE(allowed(url)) << url;
  }
  EXPECT_FALSE(allowed("https://x" + std::string(1, '\0') + "S/"));
  EXPECT_TRUE(log_.Contains("Error while loading options; some may be missing"));
  for (const char* off : {"0", "", "yes", "99999999999"}) {
    app_data_.WriteOptions("plugin_enable_corp_host=" + std::string(off) + "\n");
    EXPECT_FALSE(allowed("http://a.C/")) << off;
  }
  app_data_.WriteOptions("plugin_enable_corp_host=-1\n");
  for (const char* url : {"http://a.C/", "https://a.b.C:8443/"}) EXPECT_TRUE(allowed(url)) << url;
  for (const char* url : {"https://C/", "https://aC/", "https://a.Cx/", "http://S/"}) {
    EXPECT_FALSE(allowed(url)) << url;
  }
  SetRequireSecureStandardHosts(false);
  EXPECT_TRUE(allowed("http://S/"));
}

TEST(RedactMessageTest, SecretsAndRemotingPayloadsGo) {
  const std::pair<std::string_view, std::string_view> kCases[] = {
      {R"([{"kp":"a"},{"kp":""},{"kp":"c","x":1}])",
       R"([{"kp":"REDACTED"},{"kp":"REDACTED"},{"kp":"REDACTED","x":1}])"},
      {R"({"kp": "abc"})", R"({"kp": REDACTED"abc"})"},
      {R"({"kp":"abc"kp":"def"})", R"({"kp":"REDACTED"kp":"REDACTED"})"},
      {R"({"kp":"cut)", R"({"kp":"REDACTED)"},
      {R"({"kp":")", R"({"kp":"REDACTED)"},
      {R"({"kp":)", R"({"kp":)"},
      {R"(["remoting-send",{"a":1}])", R"(["remoting-send", ...REDACTED...])"},
      {R"(["remoting-start"])", R"(["remoting-start", ...REDACTED...])"},
      {R"(["remoting-data","remoting-send"])", R"(["remoting-data", ...REDACTED...])"},
      {R"(["remoting-input)", R"(["remoting-input)"},
      {R"(["remoting-sender",1])", R"(["remoting-sender",1])"},
      {R"(["x","remoting-send",1])", R"(["x","remoting-send",1])"},
      {"", ""}};
  for (const auto& [text, redacted] : kCases) EXPECT_EQ(redacted, RedactMessage(text)) << text;
  EXPECT_EQ(std::string("\0\"kp\":\"REDACTED\"", 16),
            RedactMessage(std::string_view("\0\"kp\":\"\0\"", 9)));
  std::string long_text;  // the time grows with the length only
  for (int i = 0; i < 500000; ++i) long_text += "\"kp\":\"x\"";
  EXPECT_EQ(500000u * 15, RedactMessage(long_text).size());
}

TEST_F(SettingsTest, OptionsAreReadOnceByEachObjectAndSavedAtEveryChange) {
  const std::string path = app_data_.folder() + "options";
  int32_t value = 0;
  const auto early = CreateOptionsPersistence();
  EXPECT_FALSE(early->GetIntValue("n", &value));
  app_data_.WriteOptions("b=2\nn=5\n");
  EXPECT_FALSE(early->GetIntValue("n", &value));
  EXPECT_EQ(1, log_.Count("Error while loading options; some may be missing\n"));
  const auto options = CreateOptionsPersistence();
  EXPECT_TRUE(options->GetIntValue("n", &value) && value == 5);
  EXPECT_TRUE(options->SetStringValue("a", "x"));
  EXPECT_EQ("a=x\nb=2\nn=5\n", ReadFile(path));
  EXPECT_TRUE(options->SetIntValue("c", 3) && options->RemoveValue("b"));
  EXPECT_EQ("a=x\nc=3\nn=5\n", ReadFile(path));
  WriteFile(path, "untouched");
  EXPECT_FALSE(options->SetStringValue("a", "illegal\n"));
  EXPECT_EQ("untouched", ReadFile(path));
}

TEST_F(SettingsTest, OptionsThatCouldNotBeReadAgainAreNotSaved) {
  OptionsFile options(app_data_.dir() / "options");
  ASSERT_TRUE(options.SetStringValue("a", "b") && options.Save());
  const size_t room = OptionsFile::kMaxFileSize - sizeof("a=b") - sizeof("c=");
  ASSERT_TRUE(options.SetStringValue("c", std::string(room + 1, 'x')));
  EXPECT_FALSE(options.Save());
  EXPECT_EQ(ReadFile(app_data_.dir() / "options"), "a=b\n");
  EXPECT_TRUE(options.SetStringValue("c", std::string(room, 'x')) && options.Save());
  OptionsFile again(app_data_.dir() / "options");
  std::string value;
  EXPECT_TRUE(again.Load() && again.GetStringValue("c", &value) && value.size() == room);
}

TEST_F(SettingsTest, WithoutAFolderNothingIsStoredUntilThereIsOne) {
  const std::string blocker = app_data_.dir() / "murmel-murmelparlplugin";
  WriteFile(blocker, "");
  const auto options = CreateOptionsPersistence();
  std::string text;
  int32_t number = 0;
  EXPECT_FALSE(options->GetStringValue("a", &text) || options->GetIntValue("a", &number) ||
               options->SetStringValue("a", "b") || options->SetIntValue("a", 1) ||
               options->RemoveValue("a"));
  EXPECT_EQ(5, log_.Count("Could not get app data folder; cannot do any options storage!"));
  EXPECT_TRUE(GetPortFilePath(1).empty());
  ASSERT_TRUE(Filesystem::DeleteFile(blocker));
  EXPECT_TRUE(options->SetStringValue("a", "b"));
  EXPECT_EQ(app_data_.folder() + "murmelparlplugin_port", GetPortFilePath(1).pathname());
  EXPECT_EQ(app_data_.folder() + "murmelparlplugin_ws_port", GetPortFilePath(0).pathname());
}

const std::string kCookie("0123456\0\n\xff\"bcdef", 16);

TEST_F(SettingsTest, AWrittenPortFileReplacesAStaleOneAndReadsBack) {
  const test::TempDir& dir = app_data_.dir();
  const std::string path = dir / "a/b/port";
  EXPECT_TRUE(WritePortFile(path, 1, kCookie));
  EXPECT_EQ(0755, FileMode(dir / "a/b"));
  WriteFile(path, "stale and longer than the new one");
  ASSERT_EQ(0, chmod(path.c_str(), 0644));
  const auto file = WritePortFile(path, 5000, kCookie);
  EXPECT_EQ(std::string("\x88\x13\0\0", 4) + kCookie, ReadFile(path));  // while it is open
  EXPECT_EQ(0600, FileMode(path));
  EXPECT_TRUE(Read(path) && port_ == 5000 && read_cookie_ == kCookie);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(DeletePortFile(path));
    EXPECT_EQ(-1, FileMode(path));
  }
}

TEST_F(SettingsTest, PortFilesThatCannotBeUsedAreTold) {
  const test::TempDir& dir = app_data_.dir();
  ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0600));
  EXPECT_FALSE(Read(dir / "missing") || Read(dir / "fifo"));
  EXPECT_EQ("", log_.text());
  EXPECT_FALSE(WritePortFile(dir / "fifo", 1, kCookie));
  EXPECT_TRUE(log_.Contains("open() failed."));
  for (const size_t size : {0, 3, 4, 19}) {
    log_.Clear();
    WriteFile(dir / "short", std::string(size, 'x'));
    EXPECT_FALSE(Read(dir / "short"));
    EXPECT_TRUE(
        log_.Contains("FileStream::Read() failed, read=" + std::to_string(size) + " err=0"));
  }
  EXPECT_FALSE(WritePortFile(dir / "short/port", 1, kCookie));
  EXPECT_TRUE(log_.Contains("Filesystem::CreateFolder() failed."));
  EXPECT_FALSE(Read(dir.path()));
  EXPECT_TRUE(log_.Contains("FileStream::Read() failed, read=0 err=21"));
  // The port is whatever number the file holds, and the rest does not matter.
  WriteFile(dir / "long", "\xff\xff\xff\xff" + kCookie + "more");
  EXPECT_TRUE(Read(dir / "long") && port_ == -1 && read_cookie_ == kCookie);
}

}  // namespace
}  // namespace mpbp
