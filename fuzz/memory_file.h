#ifndef MPBP_FUZZ_MEMORY_FILE_H_
#define MPBP_FUZZ_MEMORY_FILE_H_

#include <string>
#include <string_view>

#include "base/uniquefd.h"

namespace mpbp::fuzz {

// A file without a name in any folder, for what reads files.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content = {});

  // What to open it by, for as long as this object lives.
  std::string path() const;
  std::string Content() const;

 private:
  UniqueFd fd_;
};

}  // namespace mpbp::fuzz

#endif  // MPBP_FUZZ_MEMORY_FILE_H_
