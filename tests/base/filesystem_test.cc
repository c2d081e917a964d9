#include "base/filesystem.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"

namespace mpbp {
namespace {

using test::CapturedLog;
using test::FileMode;
using test::ScopedAppData;
using test::ScopedEnv;
using test::TempDir;
using test::WriteFile;

TEST(FilesystemTest, AppDataFolderIsInTheConfigHomeAndPrivate) {
  ScopedAppData app_data;
  ASSERT_EQ(0, mkdir(app_data.folder().c_str(), 0755));
  Pathname path("/stale/name");
  ASSERT_TRUE(Filesystem::GetAppDataFolder(&path, true));
  EXPECT_EQ(app_data.folder(), path.pathname());
  EXPECT_EQ(0700, FileMode(path.pathname()));
}

TEST(FilesystemTest, HomeFolderIsHomeThenDotdirThenThePasswordDatabases) {
  ScopedAppData app_data;
  TempDir home;
  TempDir dotdir;
  const std::string leaf = "/.config/murmel-murmelparlplugin/";
  ScopedEnv no_config("XDG_CONFIG_HOME", "");  // set to nothing: a relative folder helps nobody
  ScopedEnv set_dotdir("DOTDIR", dotdir.path().c_str());
  Pathname path;
  {
    ScopedEnv set_home("HOME", home.path().c_str());
    ASSERT_TRUE(Filesystem::GetAppDataFolder(&path, true));
    EXPECT_EQ(home.path() + leaf, path.pathname());
    EXPECT_EQ(0700, FileMode(home / ".config"));
  }
  ScopedEnv no_home("HOME", nullptr);
  ASSERT_TRUE(Filesystem::GetAppDataFolder(&path, true));
  EXPECT_EQ(dotdir.path() + leaf, path.pathname());
}

TEST(FilesystemTest, AppDataFolderFailsWhereAFileIsInItsPlace) {
  ScopedAppData app_data;
  WriteFile(app_data.dir() / "murmel-murmelparlplugin", "");
  Pathname path("/unchanged");
  EXPECT_FALSE(Filesystem::GetAppDataFolder(&path, true));
  EXPECT_EQ("/unchanged", path.pathname());
}

TEST(FilesystemTest, CreateFolderMakesParentsAndAcceptsWhatIsThere) {
  TempDir dir;
  CapturedLog log;
  EXPECT_TRUE(Filesystem::CreateFolder(dir / "a/b//c/", 0750));
  EXPECT_TRUE(log.Contains("Creating folder: " + (dir / "a/") + "\n"));
  EXPECT_EQ(0750, FileMode(dir / "a/b/c"));
  log.Clear();
  EXPECT_TRUE(Filesystem::CreateFolder(dir / "a/b/c/", 0700));
  EXPECT_EQ("", log.text());
  EXPECT_EQ(0750, FileMode(dir / "a/b/c"));

  EXPECT_FALSE(Filesystem::CreateFolder(dir / "not_a_folder_name", 0700));
  EXPECT_FALSE(Filesystem::CreateFolder("", 0700));
  EXPECT_TRUE(Filesystem::CreateFolder("/", 0700));
  WriteFile(dir / "file", "");
  EXPECT_FALSE(Filesystem::CreateFolder(dir / "file/", 0700));
  EXPECT_FALSE(Filesystem::CreateFolder(dir / "file/below/", 0700));
  std::string endless = dir.path();
  for (int i = 0; i < 100000; ++i) endless += "/x";
  EXPECT_FALSE(Filesystem::CreateFolder(endless + "/", 0700));
  ASSERT_EQ(0, symlink((dir / "nowhere").c_str(), (dir / "link").c_str()));
  EXPECT_FALSE(Filesystem::CreateFolder(dir / "link/", 0700));
}

TEST(FilesystemTest, PrivateFilesAreNewFiles) {
  TempDir dir;
  CapturedLog log;
  EXPECT_TRUE(Filesystem::CreatePrivateFile(dir / "file"));
  EXPECT_EQ(0600, FileMode(dir / "file"));
  EXPECT_FALSE(log.Contains("open() failed."));
  EXPECT_FALSE(Filesystem::CreatePrivateFile(dir / "file"));
  EXPECT_TRUE(log.Contains("open() failed."));
  ASSERT_EQ(0, symlink((dir / "target").c_str(), (dir / "link").c_str()));
  EXPECT_FALSE(Filesystem::CreatePrivateFile(dir / "link"));
  EXPECT_FALSE(Filesystem::IsFile(dir / "target"));
  EXPECT_TRUE(Filesystem::DeleteFile(dir / "file"));
  EXPECT_FALSE(Filesystem::DeleteFile(dir / "file"));
  EXPECT_EQ(ENOENT, errno);
}

TEST(FilesystemTest, TemporaryNamesAreNewFilesInTheTemporaryFolder) {
  TempDir dir;
  ScopedEnv tmp("TMP", "/nowhere");
  Pathname path("/old/name");
  {
    ScopedEnv no_tmpdir("TMPDIR", nullptr);
    EXPECT_TRUE(Filesystem::GetTemporaryFolder(&path, false, ""));
    EXPECT_EQ("/nowhere/", path.pathname());
    EXPECT_EQ("", Filesystem::TempFilename(path, "log"));
  }
  ScopedEnv tmpdir("TMPDIR", dir.path().c_str());
  ASSERT_TRUE(Filesystem::GetTemporaryFolder(&path, true, "sub"));
  const std::string name = Filesystem::TempFilename(path, "log");
  EXPECT_TRUE(name.starts_with(dir / "sub/log"));
  EXPECT_EQ(0600, FileMode(name));
  EXPECT_NE(name, Filesystem::TempFilename(path, "log"));
}

}  // namespace
}  // namespace mpbp
