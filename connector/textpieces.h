// Texts of any size in pieces that a browser's native messages carry, with flow control: what the
// other end has not acknowledged stays below a window.
#ifndef MPBP_CONNECTOR_TEXTPIECES_H_
#define MPBP_CONNECTOR_TEXTPIECES_H_

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace mpbp {

// One direction of a link, at the end that sends.
class PieceSender {
 public:
  // Of a piece, counted as JSON writes it, without what stands around it. Small enough that the
  // text of another link waits for few of them.
  static constexpr size_t kPieceSize = size_t{64} << 10;
  // Pieces go out while less than this is unacknowledged.
  static constexpr size_t kWindow = size_t{512} << 10;

  // Takes one piece; `more` of its text follow. Must not call back into the sender.
  using Write = std::function<void(std::string_view piece, bool more)>;

  explicit PieceSender(Write write) : write_(std::move(write)) {}

  // Sends the text, or as much of it as fits now. It is valid UTF-8.
  void Send(std::string text);
  // The other end has taken the `count` oldest pieces. False when there are not so many; nothing
  // changes then.
  [[nodiscard]] bool Acknowledge(size_t count);
  // Whether something has to wait for acknowledgements.
  bool waits() const { return !waiting_.empty(); }

 private:
  void Flush();

  const Write write_;
  std::deque<std::string> waiting_;
  size_t sent_of_first_ = 0;      // bytes of the first one
  std::deque<size_t> under_way_;  // sizes of the pieces, oldest first
  size_t under_way_bytes_ = 0;
};

// One direction of a link, at the end that receives.
class PieceReceiver {
 public:
  // The most that a text may have; what a page may pile up for an engine.
  static constexpr size_t kMaxText = size_t{256} << 20;
  // Acknowledgements come late, so that small texts cost none.
  static constexpr size_t kAcknowledgedPieces = 32;
  static constexpr size_t kAcknowledgedBytes = size_t{128} << 10;

  enum class Result { WHOLE, PARTIAL, TOO_LONG };

  // Takes a piece; WHOLE puts the complete text into *text. TOO_LONG once for a text beyond
  // kMaxText, of which the rest is skipped.
  [[nodiscard]] Result Take(std::string piece, bool more, std::string* text);
  // How many pieces are to be acknowledged now; 0: none yet.
  [[nodiscard]] size_t TakeAcknowledgement();

 private:
  std::string text_;
  bool skipping_ = false;
  size_t pieces_ = 0;  // not acknowledged yet
  size_t bytes_ = 0;
};

// Where a piece ends that begins at `start`: at most `size` bytes of JSON, whole characters, at
// least one. *json_size gets what it takes in JSON.
size_t EndOfPiece(std::string_view text, size_t start, size_t size, size_t* json_size);

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_TEXTPIECES_H_
