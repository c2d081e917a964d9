// A connection to an engine, as a plug-in makes it, and as it should never be.
#ifndef MPBP_ENGINECHECK_ENGINELINK_H_
#define MPBP_ENGINECHECK_ENGINELINK_H_

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/bytebuffer.h"
#include "base/uniquefd.h"
#include "enginecheck/deadline.h"

namespace mpbp::enginecheck {

// What a port file says.
struct EngineAddress {
  int port = 0;
  std::string cookie;  // 16 bytes
};

using Frame = std::pair<uint16_t, std::string>;  // type and payload

// The bytes of a frame (MessageType of messagesocket.h).
std::string FrameBytes(uint16_t type, const std::string& payload);

// Waits for nothing longer than its deadlines say, and reads while it writes.
class EngineLink {
 public:
  // `host` in host byte order. Nothing, with an errno value in *error, when the connection fails.
  static std::optional<EngineLink> Connect(uint32_t host, int port, int* error);

  // Writes the bytes, and false when the engine does not take them by then.
  [[nodiscard]] bool Write(std::string_view bytes, const Deadline& deadline);
  // The next frame; nothing when there is none by then, or the engine closed the connection.
  std::optional<Frame> Read(const Deadline& deadline);
  // Reads up to the next cookie response and gives its payload. The texts before it go to *texts,
  // which may be null; too many of them are as good as no response.
  std::optional<std::string> ReadCookieResponse(const Deadline& deadline,
                                                std::vector<std::string>* texts);
  // Whether the engine has closed the connection, as far as was read.
  bool closed() const { return closed_; }

 private:
  explicit EngineLink(UniqueFd fd) : fd_(std::move(fd)) {}
  // Waits until it can be read, or written if `writing`, and reads. False when the time is up.
  bool Serve(bool writing, const Deadline& deadline);
  void ReadBytes();

  UniqueFd fd_;
  std::unique_ptr<ByteBuffer> input_ = std::make_unique<ByteBuffer>();  // it cannot be moved
  std::deque<Frame> frames_;
  size_t frames_size_ = 0;  // of their payloads
  bool closed_ = false;
};

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_ENGINELINK_H_
