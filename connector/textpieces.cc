#include "connector/textpieces.h"

#include <utility>

namespace mpbp {
namespace {

// The most that JSON makes of one byte: "\u0000".
constexpr size_t kEscapeSize = 6;

size_t JsonSize(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0x20 || byte == 0x7f) return kEscapeSize;
  return c == '"' || c == '\\' ? 2 : 1;
}

bool BeginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }

}  // namespace

size_t EndOfPiece(std::string_view text, size_t start, size_t size, size_t* json_size) {
  size_t end = start;
  size_t bytes = 0;
  while (end < text.size()) {
    size_t next = end;
    size_t character = 0;
    do character += JsonSize(text[next++]);
    while (next < text.size() && !BeginsCharacter(text[next]));
    if (end > start && bytes + character > size) break;
    bytes += character;
    end = next;
  }
  *json_size = bytes;
  return end;
}

void PieceSender::Send(std::string text) {
  waiting_.push_back(std::move(text));
  Flush();
}

bool PieceSender::Acknowledge(size_t count) {
  if (count > under_way_.size()) return false;
  for (; count > 0; --count) {
    under_way_bytes_ -= under_way_.front();
    under_way_.pop_front();
  }
  Flush();
  return true;
}

void PieceSender::Flush() {
  while (!waiting_.empty() && under_way_bytes_ < kWindow) {
    const std::string_view text = waiting_.front();
    size_t json_size = 0;
    const size_t end = EndOfPiece(text, sent_of_first_, kPieceSize, &json_size);
    const bool more = end < text.size();
    write_(text.substr(sent_of_first_, end - sent_of_first_), more);
    // Empty ones count too, or any number of them would be under way.
    under_way_.push_back(json_size + 1);
    under_way_bytes_ += under_way_.back();
    sent_of_first_ = more ? end : 0;
    if (!more) waiting_.pop_front();
  }
}

PieceReceiver::Result PieceReceiver::Take(std::string piece, bool more, std::string* text) {
  ++pieces_;
  bytes_ += piece.size();
  const bool was_skipping = std::exchange(skipping_, skipping_ && more);
  if (was_skipping) return Result::PARTIAL;
  if (piece.size() > kMaxText - text_.size()) {
    text_ = {};
    skipping_ = more;
    return Result::TOO_LONG;
  }
  if (text_.empty()) {
    text_ = std::move(piece);
  } else {
    text_ += piece;
  }
  if (more) return Result::PARTIAL;
  *text = std::exchange(text_, {});
  return Result::WHOLE;
}

size_t PieceReceiver::TakeAcknowledgement() {
  if (pieces_ < kAcknowledgedPieces && bytes_ < kAcknowledgedBytes) return 0;
  bytes_ = 0;
  return std::exchange(pieces_, 0);
}

}  // namespace mpbp
