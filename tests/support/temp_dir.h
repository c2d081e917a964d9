// A temporary folder of a test's own, and whole files as strings.
#ifndef MPBP_TESTS_SUPPORT_TEMP_DIR_H_
#define MPBP_TESTS_SUPPORT_TEMP_DIR_H_

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace mpbp::test {

// Created on construction, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/mpbp_test_XXXXXX";
    EXPECT_TRUE(mkdtemp(name));
    path_ = name;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  // Without a closing '/'.
  const std::string& path() const { return path_; }
  // The path of an entry, which need not exist.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  EXPECT_TRUE(file.good()) << path;
}

// Empty when there is no such file.
inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The permission bits, -1 when the path does not exist.
inline int FileMode(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_TEMP_DIR_H_
