// The log held in memory: its most recent part.
#ifndef MPBP_BASE_MEMORYLOG_H_
#define MPBP_BASE_MEMORYLOG_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "base/criticalsection.h"
#include "base/stream.h"

namespace mpbp {

// Keeps at least the last kKeptBytes bytes written to it and forgets the older ones by whole
// chunks, so that it never holds more than one chunk above that. Any thread may use it at any
// time; it never logs.
class MemoryLog : public StreamInterface {
 public:
  // What an upload of the log sends at most: 10,000,000 bytes less 100,000 for the rest of the
  // form.
  static constexpr size_t kKeptBytes = 9'900'000;
  static constexpr size_t kChunkSize = 65'536;

  // Not readable as a stream: fails with ENOTSUP.
  [[nodiscard]] StreamResult Read(void* buffer, size_t length, size_t* read, int* error) override;
  // Takes everything; fails with ENOMEM when there is no memory, with EBADF once closed.
  [[nodiscard]] StreamResult Write(const void* data, size_t length, size_t* written,
                                   int* error) override;
  // Frees the text and takes no more.
  void Close() override;

  // Bytes ever written, the forgotten ones included.
  uint64_t size() const;
  // A copy of the last `max_bytes` bytes, or of all that are kept when those are fewer. Empty when
  // there is no memory for it.
  std::string Tail(size_t max_bytes) const;

 private:
  void Append(std::string_view data) MPBP_REQUIRES(lock_);

  mutable CriticalSection lock_;
  std::deque<std::string> chunks_ MPBP_GUARDED_BY(lock_);  // all but the last are full
  size_t kept_ MPBP_GUARDED_BY(lock_) = 0;                 // bytes in chunks_
  uint64_t size_ MPBP_GUARDED_BY(lock_) = 0;
  bool closed_ MPBP_GUARDED_BY(lock_) = false;
};

}  // namespace mpbp

#endif  // MPBP_BASE_MEMORYLOG_H_
