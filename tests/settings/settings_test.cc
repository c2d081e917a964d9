// The allow-list, the options and the port file.
#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST_F(SettingsTest, PagesAreAllowedByHostSchemeAndOption) {
  // Patterns begin with "*" and "*.".
  const std::string corp = "//a." + std::string(kCorpHostPatterns[3]).substr(2) + ":8443/";
  SetRequireSecureStandardHosts(true);
  for (const char* pattern : kStandardHostPatterns) {
    const std::string rest = "://x" + std::string(pattern).substr(1) + "/page?x";
    EXPECT_TRUE(IsAllowedUrl("https" + rest) && !IsAllowedUrl("http" + rest)) << pattern;
  }
  EXPECT_FALSE(IsAllowedUrl("https:" + corp));
  EXPECT_TRUE(log_.Contains("Error while loading options; some may be missing"));
  for (const std::string value : {"0", "", "yes", "99999999999", "-1", "1"}) {
    app_data_.WriteOptions("plugin_enable_corp_host=" + value + "\n");
    const bool enabled = value == "-1" || value == "1";
    for (const std::string scheme : {"http:", "https:"}) {
      EXPECT_EQ(IsAllowedUrl(scheme + corp), enabled) << value;
    }
  }
}

TEST(RedactMessageTest, TheTimeGrowsWithTheLengthOnly) {
  std::string text;
  for (int i = 0; i < 500000; ++i) text += "\"kp\":\"x\"";
  EXPECT_EQ(500000u * 15, RedactMessage(text).size());
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
