// Files, folders and the options file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "base/optionsfile.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"

namespace mpbp {
namespace {

using test::FileMode;
using test::ReadFile;
using test::WriteFile;

class FilesTest : public testing::Test {
 protected:
  std::string Value(const std::string& name) const {
    std::string value;
    return options_.GetStringValue(name, &value) ? value : "(failed)";
  }

  test::TempDir dir_;
  test::CapturedLog log_;
  const std::string path_ = dir_ / "file";
  OptionsFile options_{path_};
};

TEST_F(FilesTest, StreamsReadLinesWhateverTheyHoldInBoundedMemory) {
  const std::string long_line(100000, 'x');
  const std::string with_nul("a\0b\r", 4);
  const std::string text = "\n" + with_nul + "\n" + long_line + "\nlast";
  FileStream stream;
  ASSERT_TRUE(stream.Open(path_, "wb", nullptr));
  EXPECT_TRUE(stream.WriteAll(text) == StreamResult::SR_SUCCESS && stream.Flush());
  EXPECT_EQ(text, ReadFileText(path_, 1 << 20));
  EXPECT_EQ(text.substr(0, 5000), ReadFileText(path_, 5000));
  ASSERT_TRUE(stream.Open(path_, "r", nullptr));
  std::string line;
  for (const std::string& expected : {std::string(), with_nul, long_line, std::string("last")}) {
    ASSERT_EQ(StreamResult::SR_SUCCESS, stream.ReadLine(&line));
    EXPECT_EQ(expected, line);
  }
  EXPECT_EQ(StreamResult::SR_EOS, stream.ReadLine(&line));

  ASSERT_EQ(0, truncate(path_.c_str(), off_t{1} << 40));
  int error = 0;
  ASSERT_TRUE(stream.Open(path_, "r", nullptr));
  for (int i = 0; i < 3; ++i) ASSERT_EQ(StreamResult::SR_SUCCESS, stream.ReadLine(&line));
  EXPECT_EQ(StreamResult::SR_ERROR, stream.ReadLine(&line, &error));
  EXPECT_EQ(EFBIG, error);
}

TEST_F(FilesTest, TwoThatBeganTheSameFileDoNotWriteOverEachOther) {
  FileStream first, second;
  const auto write = [](FileStream& stream, const char* text) {
    EXPECT_EQ(StreamResult::SR_SUCCESS, stream.WriteAll(text));
  };
  ASSERT_TRUE(first.Open(path_, "w", nullptr) && first.DisableBuffering());
  write(first, "lost when the other begins\n");
  ASSERT_TRUE(second.Open(path_, "w", nullptr) && second.DisableBuffering());
  write(second, "one\n");
  write(first, "two\n");
  write(second, "three\n");
  EXPECT_EQ("one\ntwo\nthree\n", ReadFileText(path_, 100));
}

TEST_F(FilesTest, StreamsRefuseWhatIsNoFileWithoutWaiting) {
  FileStream stream;
  ASSERT_EQ(0, mkfifo((dir_ / "fifo").c_str(), 0600));
  // Somebody at the other end: the open itself would succeed.
  ASSERT_EQ(0, mkfifo((dir_ / "read").c_str(), 0600));
  const int reader = open((dir_ / "read").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const std::tuple<std::string, const char*, int> cases[] = {
      {dir_ / "fifo", "r", ENXIO}, {dir_ / "fifo", "w", ENXIO}, {dir_ / "read", "w", ENXIO},
      {"/dev/zero", "r", ENXIO},   {path_, "r", ENOENT},        {path_, "r+", EINVAL}};
  for (const auto& [path, mode, expected] : cases) {
    int error = 0;
    EXPECT_FALSE(stream.Open(path, mode, &error));
    EXPECT_EQ(expected, error) << path;
  }
  close(reader);
}

TEST_F(FilesTest, AppDataFolderIsPrivateAndNotMadeOverAFile) {
  test::ScopedAppData app_data;
  Pathname path("/unchanged");
  WriteFile(app_data.dir() / "murmel-murmelparlplugin", "");
  EXPECT_FALSE(Filesystem::GetAppDataFolder(&path, true));  // a file is in its place
  EXPECT_EQ("/unchanged", path.pathname());
  unlink((app_data.dir() / "murmel-murmelparlplugin").c_str());
  ASSERT_EQ(0, mkdir(app_data.folder().c_str(), 0755));
  ASSERT_TRUE(Filesystem::GetAppDataFolder(&path, true));
  EXPECT_EQ(app_data.folder(), path.pathname());
  EXPECT_EQ(0700, FileMode(path.pathname()));

  const test::ScopedEnv no_config("XDG_CONFIG_HOME", nullptr);
  const test::ScopedEnv dotdir("DOTDIR", (dir_ / "dotdir").c_str());
  for (const char* const home : {"home", ""}) {
    const test::ScopedEnv variable("HOME", *home ? (dir_ / home).c_str() : home);
    ASSERT_TRUE(Filesystem::GetAppDataFolder(&path, true));
    EXPECT_EQ(dir_ / (*home ? home : "dotdir") + "/.config/murmel-murmelparlplugin/",
              path.pathname());
  }
}

TEST_F(FilesTest, PrivateFilesAreNewFiles) {
  EXPECT_TRUE(Filesystem::CreatePrivateFile(path_));
  EXPECT_EQ(0600, FileMode(path_));
  EXPECT_FALSE(Filesystem::CreatePrivateFile(path_));
  ASSERT_EQ(0, symlink((dir_ / "target").c_str(), (dir_ / "link").c_str()));
  EXPECT_FALSE(Filesystem::CreatePrivateFile(dir_ / "link") || Filesystem::IsFile(dir_ / "target"));
}

TEST_F(FilesTest, OptionsAreLoadedChangedAndSavedAsSortedLines) {
  WriteFile(path_, "b=1\nx=a=b\r\n=empty name\n\nno separator\nb=2\nempty=\r\r\nlast=a\rb\r");
  ASSERT_TRUE(options_.Load());
  EXPECT_EQ(2, log_.Count("Ignoring malformed line in " + path_));
  EXPECT_EQ("a=b+(failed)", Value("x") + Value("empty") + "+" + Value("no separator"));
  int32_t number = 0;
  EXPECT_FALSE(options_.GetIntValue("x", &number));
  EXPECT_TRUE(options_.GetIntValue("b", &number) && number == 2);
  EXPECT_TRUE(options_.SetStringValue("B", "with = and \"quotes\"") &&
              options_.SetIntValue("n", -12) && options_.RemoveValue("empty") &&
              options_.RemoveValue("never there"));
  for (const std::string name : {"a\nb", "a\\b", "a=b"}) {
    EXPECT_FALSE(options_.SetStringValue(name, "v") || options_.SetIntValue(name, 1) ||
                 options_.GetIntValue(name, &number) || options_.RemoveValue(name));
    EXPECT_EQ(4, log_.Count("Ignoring operation for illegal option " + name));
  }
  EXPECT_FALSE(options_.SetStringValue("b", "a\nb") || options_.SetStringValue("b", "a\\b"));
  ASSERT_TRUE(options_.Save());
  EXPECT_EQ("=empty name\nB=with = and \"quotes\"\nb=2\nlast=a\rb\nn=-12\nx=a=b\n",
            ReadFile(path_));
}

TEST_F(FilesTest, OptionsThatCannotBeReadOrWrittenFailAndSaySo) {
  ASSERT_TRUE(options_.SetStringValue("stale", "1"));
  EXPECT_FALSE(options_.Load());
  EXPECT_TRUE(log_.Contains("Could not open file, err=2\n"));
  EXPECT_TRUE(options_.Save());
  EXPECT_EQ("", ReadFile(path_));
  OptionsFile folder(dir_.path());
  EXPECT_FALSE(folder.Load() || folder.Save());
  EXPECT_TRUE(log_.Contains("Could not open file, err=21\n"));
  OptionsFile full("/dev/full");
  ASSERT_TRUE(full.SetStringValue("a", "b"));
  EXPECT_FALSE(full.Save());
  EXPECT_TRUE(log_.Contains("Unable to write to file\n"));
  std::string overlong = "first=1\n";
  for (int i = 0; i < 200000; ++i) overlong += std::to_string(i) + "=abc\n";
  WriteFile(path_, overlong);
  EXPECT_FALSE(options_.Load());
  EXPECT_EQ("1", Value("first"));
  EXPECT_EQ(2, log_.Count("Error when reading from file\n"));
  for (const std::string& reason : {dir_.path() + " : [0x00000015] ", path_ + " : [0x0000001b] "}) {
    EXPECT_EQ(1, log_.Count("The options file cannot be read, path=" + reason)) << reason;
  }
}

}  // namespace
}  // namespace mpbp
