// Memory that grows without being copied, and goes back to the system when it is large.
#ifndef MPBP_BASE_BYTEBLOCK_H_
#define MPBP_BASE_BYTEBLOCK_H_

#include <cstddef>

namespace mpbp {

// A block of bytes, at first of none. Large ones are mappings of their own: the system moves their
// pages and not their bytes, counts only pages that were written to, and has all of them back at
// the end, whatever was allocated since.
class ByteBlock {
 public:
  ByteBlock() = default;
  ByteBlock(const ByteBlock&) = delete;
  ByteBlock& operator=(const ByteBlock&) = delete;
  ~ByteBlock() { Release(data_, size_); }

  char* data() { return data_; }
  const char* data() const { return data_; }
  size_t size() const { return size_; }

  // Keeps the bytes as far as they fit. Throws std::bad_alloc, and changes nothing, without memory
  // for it.
  void Resize(size_t size);

 private:
  static char* Allocate(size_t size);
  static void Release(char* data, size_t size);

  char* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace mpbp

#endif  // MPBP_BASE_BYTEBLOCK_H_
