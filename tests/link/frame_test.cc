// The frame layout alone, without a socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "pluginmessagesocket.h"

namespace mpbp {
namespace {

using testing::ElementsAre;
using testing::Pair;

std::string Framed(uint16_t type, const std::string& data) {
  ByteBuffer buffer;
  WriteFrame(type, data, buffer);
  return {buffer.Data(), buffer.Length()};
}

TEST(FrameTest, IsTypeLengthAndPayloadBigEndian) {
  EXPECT_EQ(Framed(2, "[\"a\"]"), std::string("\0\2\0\0\0\5[\"a\"]", 11));
  EXPECT_EQ(Framed(0xABCD, ""), std::string("\xAB\xCD\0\0\0\0", 6));
  EXPECT_EQ(Framed(2, std::string(0x010203, 'x')).substr(2, 4), std::string("\0\1\2\3", 4));
}

TEST(FrameTest, AHostileLengthWaitsAndReservesNothing) {
  for (const char* const length : {"\xFF\xFF\xFF\xFF", "\x80\0\0\0", "\x7F\xFF\xFF\xFF"}) {
    ByteBuffer buffer;
    buffer.WriteBytes(Framed(2, "before"));
    buffer.WriteBytes(std::string("\0\2", 2) + std::string(length, 4) + "some bytes");
    FrameList frames;
    ReadFrames(buffer, frames);
    ReadFrames(buffer, frames);
    EXPECT_THAT(frames, ElementsAre(Pair(2, "before")));
    EXPECT_EQ(buffer.Length(), 16u);  // from its header on
    EXPECT_EQ(buffer.Capacity(), ByteBuffer::kDefaultCapacity);
  }
}

TEST(FrameTest, RandomStreamsCutAtRandomPlacesGiveTheSameFrames) {
  std::mt19937 random(20'260'101);
  const auto below = [&random](uint32_t bound) { return random() % bound; };
  for (int round = 0; round < 3000; ++round) {
    FrameList sent;
    std::string stream;
    for (uint32_t i = below(8) + 1; i > 0; --i) {
      // Most are short; some do not fit the buffer's first capacity.
      std::string data(below(20) == 0 ? below(9000) : below(40), '\0');
      for (char& byte : data) byte = static_cast<char>(random());
      sent.emplace_back(static_cast<uint16_t>(random()), data);
      stream += Framed(sent.back().first, data);
    }
    ByteBuffer buffer({}, below(64));
    FrameList got;
    for (size_t at = 0; at < stream.size();) {
      const size_t piece = below(10) == 0 ? below(5000) : below(16);
      buffer.WriteBytes(stream.substr(at, piece));
      at += piece;
      ReadFrames(buffer, got);
    }
    ASSERT_EQ(got, sent) << "round " << round;
    ASSERT_EQ(buffer.Length(), 0u);
  }
}

}  // namespace
}  // namespace mpbp
