#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace mpbp::fuzz {

void Fail(const char* what, const char* file, int line) {
  fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
  abort();
}

std::vector<std::string> SplitFields(std::string_view input, size_t count) {
  std::vector<std::string> fields(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t end = i + 1 < count ? input.find('\n') : std::string_view::npos;
    fields[i] = input.substr(0, end);
    if (end == std::string_view::npos) break;
    input.remove_prefix(end + 1);
  }
  return fields;
}

Choices::Choices(std::string_view input) : state_(std::hash<std::string_view>()(input)) {}

size_t Choices::Between(size_t low, size_t high) {
  // The constants of Knuth's generator; its low bits are weak.
  state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
  return low + (state_ >> 33) % (high - low + 1);
}

MemoryFile::MemoryFile(std::string_view content) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
  FUZZ_CHECK(fd_ >= 0);
  FUZZ_CHECK(write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
}

MemoryFile::~MemoryFile() { close(fd_); }

std::string MemoryFile::path() const { return "/proc/self/fd/" + std::to_string(fd_); }

std::string MemoryFile::Content() const {
  struct stat status = {};
  FUZZ_CHECK(fstat(fd_, &status) == 0);
  std::string content(static_cast<size_t>(status.st_size), '\0');
  FUZZ_CHECK(pread(fd_, content.data(), content.size(), 0) == status.st_size);
  return content;
}

}  // namespace mpbp::fuzz
