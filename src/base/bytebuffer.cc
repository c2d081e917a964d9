#include "base/bytebuffer.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

namespace mpbp {
namespace {

// Up to this capacity unread bytes are moved to the front whenever that makes enough room. Above it
// only when at least half of the buffer is free: each move is paid for by what was read since the
// last one, and a long backlog is not copied for every few bytes that leave it.
constexpr size_t kMovedFreely = 65'536;

// Buffers above this give their memory back when they run empty.
constexpr size_t kKeptWhenEmpty = size_t{1} << 20;

}  // namespace

ByteBuffer::ByteBuffer(std::string_view bytes, size_t capacity, ByteOrder order) : order_(order) {
  bytes_.Resize(std::max(capacity, bytes.size()));
  WriteBytes(bytes);
}

void ByteBuffer::WriteBytes(std::string_view bytes) {
  if (bytes.empty()) return;
  MakeRoom(bytes.size());
  memcpy(bytes_.data() + end_, bytes.data(), bytes.size());
  end_ += bytes.size();
}

void ByteBuffer::MakeRoom(size_t length) {
  if (length <= bytes_.size() - end_) return;
  if (start_ > 0 && (bytes_.size() <= kMovedFreely || start_ >= bytes_.size() / 2)) {
    const size_t unread = Length();
    memmove(bytes_.data(), Data(), unread);
    start_ = 0;
    end_ = unread;
  }
  if (length > bytes_.size() - end_) bytes_.Resize(std::max(bytes_.size() * 3 / 2, end_ + length));
  ++version_;
}

void ByteBuffer::WriteUInt8(uint8_t value) {
  WriteBytes({reinterpret_cast<const char*>(&value), sizeof(value)});
}

void ByteBuffer::WriteUInt16(uint16_t value) {
  if (order_ == ByteOrder::ORDER_NETWORK) value = htobe16(value);
  WriteBytes({reinterpret_cast<const char*>(&value), sizeof(value)});
}

void ByteBuffer::WriteUInt32(uint32_t value) {
  if (order_ == ByteOrder::ORDER_NETWORK) value = htobe32(value);
  WriteBytes({reinterpret_cast<const char*>(&value), sizeof(value)});
}

bool ByteBuffer::ReadBytes(std::span<char> out) {
  if (out.size() > Length()) return false;
  if (!out.empty()) memcpy(out.data(), Data(), out.size());
  start_ += out.size();
  return true;
}

bool ByteBuffer::ReadString(std::string* out, size_t length) {
  if (length > Length()) return false;
  out->append(Data(), length);
  start_ += length;
  return true;
}

bool ByteBuffer::ReadUInt16(uint16_t* value) {
  if (!ReadBytes({reinterpret_cast<char*>(value), sizeof(*value)})) return false;
  if (order_ == ByteOrder::ORDER_NETWORK) *value = be16toh(*value);
  return true;
}

bool ByteBuffer::ReadUInt32(uint32_t* value) {
  if (!ReadBytes({reinterpret_cast<char*>(value), sizeof(*value)})) return false;
  if (order_ == ByteOrder::ORDER_NETWORK) *value = be32toh(*value);
  return true;
}

bool ByteBuffer::Consume(size_t length) {
  if (length > Length()) return false;
  start_ += length;
  return true;
}

bool ByteBuffer::SetReadPosition(ReadPosition position) {
  if (position.version != version_ || position.position > end_) return false;
  start_ = position.position;
  return true;
}

void ByteBuffer::Clear() {
  start_ = 0;
  end_ = 0;
  ++version_;
}

void ByteBuffer::ReleaseIfEmpty() {
  if (Length() > 0 || bytes_.size() <= kKeptWhenEmpty) return;
  Clear();
  bytes_.Resize(kDefaultCapacity);
}

}  // namespace mpbp
