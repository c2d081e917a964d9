#include "host/memory_table.h"

#include <cstdlib>

namespace mpbp::host {

void* MemoryTable::Alloc(uint32_t bytes) {
  void* block = std::malloc(bytes == 0 ? 1 : bytes);
  if (block == nullptr) return nullptr;
  std::lock_guard lock(mutex_);
  blocks_[block] = bytes;
  return block;
}

void MemoryTable::Free(void* block) {
  if (block == nullptr) return;
  bool ours = false;
  {
    std::lock_guard lock(mutex_);
    ours = blocks_.erase(block) > 0;
  }
  if (ours) {
    std::free(block);
  } else {
    misuse_.Add("MemFree: the block was not made by MemAlloc, or is free already");
  }
}

std::optional<size_t> MemoryTable::SizeOf(const void* block) const {
  std::lock_guard lock(mutex_);
  const auto found = blocks_.find(block);
  return found != blocks_.end() ? std::optional(found->second) : std::nullopt;
}

size_t MemoryTable::live() const {
  std::lock_guard lock(mutex_);
  return blocks_.size();
}

void MemoryTable::Clear() {
  std::lock_guard lock(mutex_);
  for (const auto& [block, size] : blocks_) std::free(const_cast<void*>(block));
  blocks_.clear();
}

}  // namespace mpbp::host
