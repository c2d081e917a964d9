// Frames: the same ones however the stream is cut, and nothing set aside for what a header
// promises.
#include <algorithm>
#include <cstdint>

#include "fuzz/choices.h"
#include "fuzz/fuzz.h"
#include "pluginmessagesocket.h"

namespace mpbp::fuzz {
namespace {

struct Reading {
  FrameList frames;
  std::string rest;

  bool operator==(const Reading&) const = default;
};

Reading ReadPlainly(std::string_view bytes) {
  Reading reading;
  const auto number = [&bytes](size_t at, size_t size) {
    uint64_t value = 0;
    for (const char byte : bytes.substr(at, size)) value = value * 256 + static_cast<uint8_t>(byte);
    return value;
  };
  while (bytes.size() >= 6 && bytes.size() - 6 >= number(2, 4)) {
    const size_t length = number(2, 4);
    reading.frames.emplace_back(static_cast<uint16_t>(number(0, 2)), bytes.substr(6, length));
    bytes.remove_prefix(6 + length);
  }
  reading.rest = bytes;
  return reading;
}

// In pieces of 1 to `longest` bytes, with room for `capacity` at first.
Reading ReadInPieces(std::string_view bytes, size_t longest, size_t capacity, Choices& choices) {
  const size_t most_room = std::max(capacity, 2 * bytes.size());
  Reading reading;
  ByteBuffer buffer({}, capacity);
  while (!bytes.empty()) {
    const std::string_view piece = bytes.substr(0, choices.Between(1, longest));
    buffer.WriteBytes(piece);
    bytes.remove_prefix(piece.size());
    ReadFrames(buffer, reading.frames);
    FUZZ_CHECK(buffer.Capacity() <= most_room);
  }
  reading.rest.assign(buffer.Data(), buffer.Length());
  return reading;
}

}  // namespace

void TestInput(std::string_view input) {
  const Reading expected = ReadPlainly(input);
  Choices choices(input);
  FUZZ_CHECK(ReadInPieces(input, 1, 0, choices) == expected);
  FUZZ_CHECK(ReadInPieces(input, 20, choices.Between(0, 64), choices) == expected);
  FUZZ_CHECK(ReadInPieces(input, input.size() + 1, ByteBuffer::kDefaultCapacity, choices) ==
             expected);

  ByteBuffer written;
  for (const auto& [type, data] : expected.frames) WriteFrame(type, data, written);
  written.WriteBytes(expected.rest);
  FUZZ_CHECK(std::string_view(written.Data(), written.Length()) == input);
}

}  // namespace mpbp::fuzz
