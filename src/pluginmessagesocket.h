// The message socket of the link to the engine: text only, both roles.
//
// A frame: type (16 bits, big-endian), payload length in bytes (32 bits, big-endian), payload. No
// separator, no padding, no limit but the length field's.
#ifndef MPBP_PLUGINMESSAGESOCKET_H_
#define MPBP_PLUGINMESSAGESOCKET_H_

#include <memory>
#include <string>

#include "messagesocket.h"

namespace mpbp {

class PluginMessageSocket : public MessageSocket {
 public:
  static constexpr size_t kHeaderSize = 6;

  PluginMessageSocket();

 protected:
  // An accepted connection.
  PluginMessageSocket(std::unique_ptr<AsyncSocket> socket, std::string cookie);

  // Refuses MSG_BINARY.
  [[nodiscard]] bool Frame(uint16_t type, std::string_view data, ByteBuffer& buffer) override;
  void Unframe(ByteBuffer& buffer, FrameList& frames) override;
  std::unique_ptr<MessageSocket> CreateAcceptedSocket(std::unique_ptr<AsyncSocket> socket,
                                                      const std::string& cookie) override;
};

// The layout alone, without a socket.
void WriteFrame(uint16_t type, std::string_view data, ByteBuffer& buffer);
// Appends every complete frame; a partial one stays in the buffer, its header included.
void ReadFrames(ByteBuffer& buffer, FrameList& frames);

}  // namespace mpbp

#endif  // MPBP_PLUGINMESSAGESOCKET_H_
