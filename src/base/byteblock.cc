#include "base/byteblock.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace mpbp {
namespace {

// From here on a block is a mapping.
constexpr size_t kLarge = size_t{1} << 20;

char* CheckMapping(void* mapping) {
  if (mapping == MAP_FAILED) throw std::bad_alloc();
  return static_cast<char*>(mapping);
}

}  // namespace

char* ByteBlock::Allocate(size_t size) {
  if (size < kLarge) return static_cast<char*>(operator new(size));
  return CheckMapping(
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

void ByteBlock::Release(char* data, size_t size) {
  if (size < kLarge) {
    operator delete(data);
  } else {
    munmap(data, size);
  }
}

void ByteBlock::Resize(size_t size) {
  if (size_ >= kLarge && size >= kLarge) {
    data_ = CheckMapping(mremap(data_, size_, size, MREMAP_MAYMOVE));
  } else {
    char* const data = Allocate(size);
    if (size_ > 0) memcpy(data, data_, std::min(size, size_));
    Release(data_, size_);
    data_ = data;
  }
  size_ = size;
}

}  // namespace mpbp
