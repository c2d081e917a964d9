#include "base/bytebuffer.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace mpbp {
namespace {

TEST(ByteBufferTest, NumbersAreBigEndianInNetworkOrderOnly) {
  ByteBuffer network;
  network.WriteUInt8(0xAB);
  network.WriteUInt16(0x0102);
  network.WriteUInt32(0x03040506);
  EXPECT_EQ(std::string(network.Data(), network.Length()), "\xAB\x01\x02\x03\x04\x05\x06");
  ASSERT_TRUE(network.Consume(1));
  uint16_t two = 0;
  uint32_t four = 0;
  ASSERT_TRUE(network.ReadUInt16(&two));
  ASSERT_TRUE(network.ReadUInt32(&four));
  EXPECT_EQ(two, 0x0102);
  EXPECT_EQ(four, 0x03040506u);

  ByteBuffer host({}, 16, ByteOrder::ORDER_HOST);
  host.WriteUInt16(0x0102);
  EXPECT_EQ(std::string(host.Data(), host.Length()), "\x02\x01");
}

TEST(ByteBufferTest, AReadOfMoreThanIsThereFailsAndMovesNothing) {
  ByteBuffer buffer("abc");
  std::string text = "kept ";
  char bytes[4];
  uint32_t number = 7;
  EXPECT_FALSE(buffer.ReadBytes(bytes));
  EXPECT_FALSE(buffer.ReadString(&text, 4));
  EXPECT_FALSE(buffer.ReadString(&text, std::numeric_limits<size_t>::max()));
  EXPECT_FALSE(buffer.ReadUInt32(&number));
  EXPECT_FALSE(buffer.Consume(4));
  EXPECT_EQ(buffer.Length(), 3u);
  EXPECT_TRUE(buffer.ReadString(&text, 3));
  EXPECT_EQ(text, "kept abc");
  EXPECT_TRUE(buffer.ReadString(&text, 0));
}

TEST(ByteBufferTest, GrowsByHalfOrByNeedAndReclaimsWhatWasReadBeforeThat) {
  ByteBuffer buffer({}, 10);
  buffer.WriteBytes("0123456789");
  EXPECT_EQ(buffer.Capacity(), 10u);
  ASSERT_TRUE(buffer.Consume(4));
  buffer.WriteBytes("abcd");  // fits once the unread bytes have moved to the front
  EXPECT_EQ(buffer.Capacity(), 10u);
  EXPECT_EQ(std::string(buffer.Data(), buffer.Length()), "456789abcd");
  buffer.WriteBytes("!");
  EXPECT_EQ(buffer.Capacity(), 15u);
  buffer.WriteBytes(std::string(100, 'x'));
  EXPECT_EQ(buffer.Capacity(), 111u);
  EXPECT_EQ(std::string(buffer.Data(), 12), "456789abcd!x");
}

TEST(ByteBufferTest, APositionIsVoidOnceTheDataHasMoved) {
  ByteBuffer buffer("header", 8);
  const ByteBuffer::ReadPosition start = buffer.GetReadPosition();
  ASSERT_TRUE(buffer.Consume(6));
  buffer.WriteBytes("12");  // still in place
  EXPECT_TRUE(buffer.SetReadPosition(start));
  EXPECT_EQ(buffer.Length(), 8u);
  ASSERT_TRUE(buffer.Consume(6));
  buffer.WriteBytes("3456");
  EXPECT_FALSE(buffer.SetReadPosition(start));
  EXPECT_EQ(std::string(buffer.Data(), buffer.Length()), "123456");

  const ByteBuffer::ReadPosition later = buffer.GetReadPosition();
  buffer.Clear();
  EXPECT_EQ(buffer.Length(), 0u);
  EXPECT_FALSE(buffer.SetReadPosition(later));
}

TEST(ByteBufferTest, KeepsEveryByteThroughManyWritesAndReads) {
  ByteBuffer buffer({}, 1);
  std::string expected;
  std::string got;
  for (int i = 0; i < 2000; ++i) {
    const std::string piece(static_cast<size_t>(i * 7 % 50), static_cast<char>(i));
    buffer.WriteBytes(piece);
    expected += piece;
    const size_t take = static_cast<size_t>(i * 5 % 40);
    if (take <= buffer.Length()) {
      ASSERT_TRUE(buffer.ReadString(&got, take));
    }
  }
  ASSERT_TRUE(buffer.ReadString(&got, buffer.Length()));
  EXPECT_EQ(got, expected);
}

}  // namespace
}  // namespace mpbp
