#ifndef MPBP_HOST_MEMORY_TABLE_H_
#define MPBP_HOST_MEMORY_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "host/misuse_log.h"

namespace mpbp::host {

// The blocks that PPB_Memory(Dev) gave out. Any thread.
class MemoryTable {
 public:
  explicit MemoryTable(MisuseLog& misuse) : misuse_(misuse) {}
  ~MemoryTable() { Clear(); }
  MemoryTable(const MemoryTable&) = delete;
  MemoryTable& operator=(const MemoryTable&) = delete;

  // Null when there is no memory.
  void* Alloc(uint32_t bytes);
  // Does nothing for null; records a misuse for a block that is not from here.
  void Free(void* block);
  // The block's size; nothing when it is not from here.
  std::optional<size_t> SizeOf(const void* block) const;
  size_t live() const;
  void Clear();

 private:
  MisuseLog& misuse_;
  mutable std::mutex mutex_;
  std::map<const void*, size_t> blocks_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_MEMORY_TABLE_H_
