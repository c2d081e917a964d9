// A growable byte buffer: written at its end, read from its front.
#ifndef MPBP_BASE_BYTEBUFFER_H_
#define MPBP_BASE_BYTEBUFFER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/byteblock.h"

namespace mpbp {

enum class ByteOrder { ORDER_NETWORK, ORDER_HOST };

class ByteBuffer {
 public:
  static constexpr size_t kDefaultCapacity = 4096;

  // A place in the data to come back to; void once a write has moved the data.
  struct ReadPosition {
    size_t position;
    uint32_t version;
  };

  explicit ByteBuffer(std::string_view bytes = {}, size_t capacity = kDefaultCapacity,
                      ByteOrder order = ByteOrder::ORDER_NETWORK);

  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;

  // The unread bytes, valid until the next write.
  const char* Data() const { return bytes_.data() + start_; }
  size_t Length() const { return end_ - start_; }
  size_t Capacity() const { return bytes_.size(); }
  ByteOrder Order() const { return order_; }

  // Makes room for so many bytes: writing them throws nothing then. Throws std::bad_alloc, and
  // changes nothing, when there is no memory for them.
  void Reserve(size_t length) { MakeRoom(length); }

  // 16- and 32-bit values are written and read big-endian when the order is network.
  void WriteBytes(std::string_view bytes);
  void WriteUInt8(uint8_t value);
  void WriteUInt16(uint16_t value);
  void WriteUInt32(uint32_t value);

  // Each fails, and moves nothing, when more is asked for than is unread.
  [[nodiscard]] bool ReadBytes(std::span<char> out);
  [[nodiscard]] bool ReadString(std::string* out, size_t length);  // appends
  [[nodiscard]] bool ReadUInt16(uint16_t* value);
  [[nodiscard]] bool ReadUInt32(uint32_t* value);
  // Skips. The space is reclaimed when a write needs room.
  [[nodiscard]] bool Consume(size_t length);

  ReadPosition GetReadPosition() const { return {start_, version_}; }
  // False, and moves nothing, when the data has moved since the position was taken.
  [[nodiscard]] bool SetReadPosition(ReadPosition position);

  void Clear();
  // Gives the memory of a large buffer back when nothing unread is left; a burst would otherwise
  // keep it forever. Positions taken before are void then.
  void ReleaseIfEmpty();

 private:
  void MakeRoom(size_t length);

  ByteBlock bytes_;  // its size is the capacity
  size_t start_ = 0;
  size_t end_ = 0;
  uint32_t version_ = 0;  // counts how often the data has moved
  ByteOrder order_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_BYTEBUFFER_H_
