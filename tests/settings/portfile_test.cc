#include <gtest/gtest.h>
#include <sys/stat.h>

#include "portfileutils.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::FileMode;
using test::ReadFile;
using test::ScopedAppData;
using test::TempDir;
using test::WriteFile;

const std::string kCookie("0123456\0\n\xff\"bcdef", 16);

TEST(PortFileTest, PathsAreInTheAppDataFolder) {
  ScopedAppData app_data;
  EXPECT_EQ(app_data.folder() + "murmelparlplugin_port", GetPortFilePath(1).pathname());
  EXPECT_EQ(app_data.folder() + "murmelparlplugin_ws_port", GetPortFilePath(0).pathname());
  std::filesystem::remove_all(app_data.folder());
  WriteFile(app_data.dir() / "murmel-murmelparlplugin", "");
  EXPECT_TRUE(GetPortFilePath(1).empty());
}

TEST(PortFileTest, AWrittenFileReplacesAStaleOneAndReadsBack) {
  TempDir dir;
  CapturedLog log;
  const std::string path = dir / "a/b/port";
  std::filesystem::create_directories(dir / "a/b");
  WriteFile(path, "stale and longer than the new one");
  ASSERT_EQ(0, chmod(path.c_str(), 0644));
  const auto file = WritePortFile(path, 5000, kCookie);
  ASSERT_TRUE(file);
  EXPECT_EQ(std::string("\x88\x13\0\0", 4) + kCookie, ReadFile(path));  // while it is open
  EXPECT_EQ(0600, FileMode(path));
  int port = 0;
  std::string cookie;
  ASSERT_TRUE(ReadPortFile(path, &port, &cookie));
  EXPECT_EQ(5000, port);
  EXPECT_EQ(kCookie, cookie);
  EXPECT_TRUE(log.Contains("Wrote port file, port=5000\n"));
  EXPECT_TRUE(log.Contains("Read port file, port=5000\n"));
  EXPECT_TRUE(DeletePortFile(path));
  EXPECT_EQ(-1, FileMode(path));
  EXPECT_TRUE(DeletePortFile(path));
}

TEST(PortFileTest, WritingCreatesTheFolderOrFails) {
  TempDir dir;
  CapturedLog log;
  EXPECT_TRUE(WritePortFile(dir / "new/folder/port", 1, kCookie));
  EXPECT_EQ(0755, FileMode(dir / "new/folder"));
  WriteFile(dir / "file", "");
  EXPECT_FALSE(WritePortFile(dir / "file/port", 1, kCookie));
  EXPECT_TRUE(log.Contains("Filesystem::CreateFolder() failed."));
  ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0600));
  EXPECT_FALSE(WritePortFile(dir / "fifo", 1, kCookie));
  EXPECT_TRUE(log.Contains("open() failed."));
}

TEST(PortFileTest, ReadingTellsShortFromMissingAndIgnoresTheRest) {
  TempDir dir;
  CapturedLog log;
  int port = 0;
  std::string cookie;
  EXPECT_FALSE(ReadPortFile(dir / "missing", &port, &cookie));
  ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0600));
  EXPECT_FALSE(ReadPortFile(dir / "fifo", &port, &cookie));
  EXPECT_EQ("", log.text());
  for (const size_t size : {0, 3, 4, 19}) {
    log.Clear();
    WriteFile(dir / "short", std::string(size, 'x'));
    EXPECT_FALSE(ReadPortFile(dir / "short", &port, &cookie));
    EXPECT_TRUE(log.Contains("FileStream::Read() failed, read=" + std::to_string(size) + " err=0"));
  }
  EXPECT_FALSE(ReadPortFile(dir.path(), &port, &cookie));
  EXPECT_TRUE(log.Contains("FileStream::Read() failed, read=0 err=21"));

  // The port is whatever number the file holds.
  WriteFile(dir / "long", "\xff\xff\xff\xff" + kCookie + "more");
  ASSERT_TRUE(ReadPortFile(dir / "long", &port, &cookie));
  EXPECT_EQ(-1, port);
  EXPECT_EQ(kCookie, cookie);
}

}  // namespace
}  // namespace mpbp
