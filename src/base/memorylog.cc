#include "base/memorylog.h"

#include <algorithm>
#include <cerrno>
#include <exception>

namespace mpbp {

StreamResult MemoryLog::Read(void* /*buffer*/, size_t /*length*/, size_t* read, int* error) {
  if (read) *read = 0;
  if (error) *error = ENOTSUP;
  return StreamResult::SR_ERROR;
}

StreamResult MemoryLog::Write(const void* data, size_t length, size_t* written, int* error) {
  CritScope scope(lock_);
  const uint64_t size_before = size_;
  int failure = closed_ ? EBADF : 0;
  if (!closed_) {
    try {
      Append(std::string_view(static_cast<const char*>(data), length));
    } catch (const std::exception&) {
      failure = ENOMEM;
    }
  }
  if (written) *written = static_cast<size_t>(size_ - size_before);
  if (failure == 0) return StreamResult::SR_SUCCESS;
  if (error) *error = failure;
  return StreamResult::SR_ERROR;
}

void MemoryLog::Append(std::string_view data) {
  while (!data.empty()) {
    if (chunks_.empty() || chunks_.back().size() == kChunkSize) {
      std::string chunk;
      chunk.reserve(kChunkSize);
      chunks_.push_back(std::move(chunk));
    }
    std::string& last = chunks_.back();
    const std::string_view part = data.substr(0, kChunkSize - last.size());
    last.append(part);
    kept_ += part.size();
    size_ += part.size();
    data.remove_prefix(part.size());
    if (kept_ - chunks_.front().size() >= kKeptBytes) {
      kept_ -= chunks_.front().size();
      chunks_.pop_front();
    }
  }
}

void MemoryLog::Close() {
  CritScope scope(lock_);
  closed_ = true;
  chunks_.clear();
  kept_ = 0;
}

uint64_t MemoryLog::size() const {
  CritScope scope(lock_);
  return size_;
}

std::string MemoryLog::Tail(size_t max_bytes) const {
  CritScope scope(lock_);
  std::string text;
  try {
    text.reserve(std::min(max_bytes, kept_));
  } catch (const std::exception&) {
    return text;
  }
  size_t skip = kept_ > max_bytes ? kept_ - max_bytes : 0;
  for (const std::string& chunk : chunks_) {
    const size_t skipped = std::min(skip, chunk.size());
    text.append(chunk, skipped);
    skip -= skipped;
  }
  return text;
}

}  // namespace mpbp
