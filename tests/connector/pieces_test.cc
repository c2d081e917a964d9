// Texts in pieces, and bytes in JSON.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/utf8.h"
#include "connector/base64.h"
#include "connector/textpieces.h"
#include "jsontext.h"

namespace mpbp {
namespace {

struct Piece {
  std::string text;
  bool more;
};

TEST(PieceSender, PiecesAreWholeCharactersOfABoundedSizeAndTheWindowHolds) {
  std::vector<Piece> pieces;
  const auto keep = [&](std::string_view piece, bool more) {
    pieces.push_back({std::string(piece), more});
  };
  PieceSender sender(keep);
  std::string text;
  while (text.size() < (4 << 20)) text += std::string("a\"\\\x01\x7f\0", 6) + "ä€\U0001f600";
  sender.Send(text);
  sender.Send("");
  std::string received;
  size_t taken = 0;
  while (taken < pieces.size()) {
    size_t under_way = 0;
    for (size_t i = taken; i < pieces.size(); ++i) under_way += pieces[i].text.size();
    EXPECT_LE(under_way, PieceSender::kWindow + PieceSender::kPieceSize);
    const Piece& piece = pieces[taken++];
    EXPECT_TRUE(IsValidUtf8(piece.text));
    EXPECT_LE(WriteJson(Json::Value(piece.text)).size(), PieceSender::kPieceSize + 2);
    received += piece.text;
    if (!piece.more && taken < pieces.size()) {
      EXPECT_EQ(text, std::exchange(received, {}));
    }
    ASSERT_TRUE(sender.Acknowledge(1));
  }
  EXPECT_EQ("", received);
  EXPECT_FALSE(sender.waits());
  EXPECT_FALSE(sender.Acknowledge(1));
}

TEST(PieceReceiver, PutsTextsTogetherUpToItsBoundAndAcknowledgesLate) {
  using Result = PieceReceiver::Result;
  PieceReceiver receiver;
  std::string text;
  EXPECT_EQ(Result::PARTIAL, receiver.Take("one ", true, &text));
  EXPECT_EQ(Result::WHOLE, receiver.Take("text", false, &text));
  EXPECT_EQ("one text", text);
  EXPECT_EQ(0u, receiver.TakeAcknowledgement());
  for (size_t i = 2; i < PieceReceiver::kAcknowledgedPieces; ++i) {
    EXPECT_EQ(Result::WHOLE, receiver.Take("", false, &text));
  }
  EXPECT_EQ(PieceReceiver::kAcknowledgedPieces, receiver.TakeAcknowledgement());

  const std::string piece(PieceReceiver::kMaxText / 8, 'x');
  EXPECT_EQ(Result::PARTIAL, receiver.Take(piece, true, &text));
  EXPECT_EQ(1u, receiver.TakeAcknowledgement());
  for (int i = 1; i < 8; ++i) EXPECT_EQ(Result::PARTIAL, receiver.Take(piece, true, &text));
  EXPECT_EQ(Result::TOO_LONG, receiver.Take("x", true, &text));
  EXPECT_EQ(Result::PARTIAL, receiver.Take(piece, true, &text));
  EXPECT_EQ(Result::PARTIAL, receiver.Take("the last of it", false, &text));
  EXPECT_EQ(Result::WHOLE, receiver.Take("the next", false, &text));
  EXPECT_EQ("the next", text);
  EXPECT_EQ(11u, receiver.TakeAcknowledgement());
}

TEST(Base64, BytesComeBackAndOtherTextsAreRefused) {
  std::string bytes;
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(bytes, DecodeBase64(EncodeBase64(bytes)));
    bytes += static_cast<char>(i);
  }
  EXPECT_EQ("Zm9vYg==", EncodeBase64("foob"));
  for (const char* text : {"Zg=", "Z===", "Zm9=Zm9v", "Zm9*", "Zm9vYg==\n", "===="}) {
    EXPECT_FALSE(DecodeBase64(text)) << text;
  }
}

}  // namespace
}  // namespace mpbp
