#include "base/filestream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/temp_dir.h"

namespace mpbp {
namespace {

using test::ReadFile;
using test::TempDir;
using test::WriteFile;

TEST(FileStreamTest, WritesAndReadsBytesUnchanged) {
  TempDir dir;
  const std::string path = dir / "file";
  std::string bytes;
  for (int i = 0; i < 20000; ++i) bytes.push_back(static_cast<char>(i % 256));
  FileStream out;
  ASSERT_TRUE(out.Open(path, "wb", nullptr));
  EXPECT_EQ(StreamResult::SR_SUCCESS, out.WriteAll(bytes));
  EXPECT_TRUE(out.Flush());
  EXPECT_EQ(bytes, ReadFile(path));
  EXPECT_EQ(bytes, ReadFileText(path, 1 << 20));
  EXPECT_EQ(bytes.substr(0, 5000), ReadFileText(path, 5000));
}

TEST(FileStreamTest, ReadsLinesWhateverTheyHold) {
  TempDir dir;
  const std::string long_line(100000, 'x');
  const std::string with_nul("a\0b\r", 4);
  WriteFile(dir / "file", "\n" + with_nul + "\n" + long_line + "\nlast");
  FileStream in;
  ASSERT_TRUE(in.Open(dir / "file", "r", nullptr));
  std::string line = "old";
  for (const std::string& expected : {std::string(), with_nul, long_line, std::string("last")}) {
    ASSERT_EQ(StreamResult::SR_SUCCESS, in.ReadLine(&line));
    EXPECT_EQ(expected, line);
  }
  EXPECT_EQ(StreamResult::SR_EOS, in.ReadLine(&line));
  EXPECT_EQ("", line);
}

TEST(FileStreamTest, ALineWithoutEndIsAnErrorInBoundedMemory) {
  TempDir dir;
  WriteFile(dir / "file", "");
  ASSERT_EQ(0, truncate((dir / "file").c_str(), off_t{1} << 40));
  FileStream in;
  ASSERT_TRUE(in.Open(dir / "file", "r", nullptr));
  std::string line;
  int error = 0;
  EXPECT_EQ(StreamResult::SR_ERROR, in.ReadLine(&line, &error));
  EXPECT_EQ(EFBIG, error);
}

TEST(FileStreamTest, AFifoIsRefusedWithoutWaiting) {
  TempDir dir;
  const std::string path = dir / "fifo";
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  FileStream stream;
  int error = 0;
  EXPECT_FALSE(stream.Open(path, "r", &error));
  EXPECT_EQ(ENXIO, error);
  EXPECT_FALSE(stream.Open(path, "w", &error));
  // With somebody at the other end the open itself would succeed.
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  error = 0;
  EXPECT_FALSE(stream.Open(path, "w", &error));
  EXPECT_EQ(ENXIO, error);
  close(reader);
}

TEST(FileStreamTest, FailuresGiveTheSystemsError) {
  TempDir dir;
  FileStream stream;
  int error = 0;
  char byte = 0;
  EXPECT_FALSE(stream.Open(dir / "missing", "r", &error));
  EXPECT_EQ(ENOENT, error);
  EXPECT_FALSE(stream.Open(dir / "file", "r+", &error));
  EXPECT_EQ(EINVAL, error);
  EXPECT_EQ(StreamResult::SR_ERROR, stream.Read(&byte, 1, nullptr, &error));
  EXPECT_EQ(EBADF, error);
  EXPECT_FALSE(stream.Open("/dev/zero", "r", &error));  // no end, no line
  EXPECT_EQ(ENXIO, error);

  ASSERT_TRUE(stream.Open(dir.path(), "r", nullptr));
  EXPECT_EQ(StreamResult::SR_ERROR, stream.Read(&byte, 1, nullptr, &error));
  EXPECT_EQ(EISDIR, error);

  ASSERT_TRUE(stream.Open("/dev/full", "w", nullptr));
  EXPECT_EQ(StreamResult::SR_SUCCESS, stream.WriteAll("x"));
  EXPECT_FALSE(stream.Flush());
  EXPECT_EQ(ENOSPC, errno);
}

}  // namespace
}  // namespace mpbp
