#include "fuzz/memory_file.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fuzz/fuzz.h"

namespace mpbp::fuzz {

MemoryFile::MemoryFile(std::string_view content) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
  FUZZ_CHECK(fd_);
  FUZZ_CHECK(write(fd_.get(), content.data(), content.size()) ==
             static_cast<ssize_t>(content.size()));
}

std::string MemoryFile::path() const { return "/proc/self/fd/" + std::to_string(fd_.get()); }

std::string MemoryFile::Content() const {
  struct stat status = {};
  FUZZ_CHECK(fstat(fd_.get(), &status) == 0);
  std::string content(static_cast<size_t>(status.st_size), '\0');
  FUZZ_CHECK(pread(fd_.get(), content.data(), content.size(), 0) == status.st_size);
  return content;
}

}  // namespace mpbp::fuzz
