// Plain sockets on 127.0.0.1, and the frames of ours on them.
#ifndef MPBP_BENCH_PEERS_SOCKETS_H_
#define MPBP_BENCH_PEERS_SOCKETS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/uniquefd.h"
#include "pluginmessagesocket.h"

namespace mpbp::bench {

// Writes the port file and prints "listening". False when it cannot be written.
bool Announce(const std::string& port_file, int port);

// Listens, announces the port, and waits for one connection. None on failure, with a line on
// standard error; so the next one.
UniqueFd AcceptOne(const std::string& port_file);
UniqueFd ConnectTo(const std::string& port_file);

// Appends a frame: type, length, payload.
void AppendFrame(std::string_view payload, std::string& out);

// Hands out the frames of a stream without copying those that come whole.
class FrameReader {
 public:
  template <typename Function>
  void Feed(std::string_view bytes, Function on_frame) {
    if (partial_.empty()) {
      partial_.assign(Parse(bytes, on_frame));
      return;
    }
    partial_.append(bytes);
    if (partial_.size() < wanted_) return;
    partial_.erase(0, partial_.size() - Parse(partial_, on_frame).size());
  }

 private:
  // Returns what is left over.
  template <typename Function>
  std::string_view Parse(std::string_view bytes, Function on_frame) {
    constexpr size_t kHeader = PluginMessageSocket::kHeaderSize;
    while (bytes.size() >= kHeader) {
      const size_t length = PayloadLength(bytes);
      wanted_ = kHeader + length;
      if (bytes.size() < wanted_) return bytes;
      on_frame(bytes.substr(kHeader, length));
      bytes.remove_prefix(wanted_);
    }
    wanted_ = kHeader;
    return bytes;
  }
  static size_t PayloadLength(std::string_view header);

  std::string partial_;
  size_t wanted_ = PluginMessageSocket::kHeaderSize;  // bytes until the next frame is whole
};

}  // namespace mpbp::bench

#endif  // MPBP_BENCH_PEERS_SOCKETS_H_
