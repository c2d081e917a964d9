#include "pluginmessagesocket.h"

#include <limits>

#include "base/logging.h"

namespace mpbp {

void WriteFrame(uint16_t type, std::string_view data, ByteBuffer& buffer) {
  buffer.Reserve(PluginMessageSocket::kHeaderSize + data.size());
  buffer.WriteUInt16(type);
  buffer.WriteUInt32(static_cast<uint32_t>(data.size()));
  buffer.WriteBytes(data);
}

void ReadFrames(ByteBuffer& buffer, FrameList& frames) {
  while (buffer.Length() >= PluginMessageSocket::kHeaderSize) {
    const ByteBuffer::ReadPosition header = buffer.GetReadPosition();
    uint16_t type = 0;
    uint32_t length = 0;
    const bool complete =
        buffer.ReadUInt16(&type) && buffer.ReadUInt32(&length) && buffer.Length() >= length;
    static_cast<void>(buffer.SetReadPosition(header));  // nothing was written: cannot fail
    if (!complete) return;
    // Copied before anything is consumed: without memory for it the frame stays whole.
    frames.emplace_back(type,
                        std::string(buffer.Data() + PluginMessageSocket::kHeaderSize, length));
    static_cast<void>(buffer.Consume(PluginMessageSocket::kHeaderSize + length));
  }
}

PluginMessageSocket::PluginMessageSocket() : MessageSocket(ROLE_CLIENT | ROLE_SERVER) {}

PluginMessageSocket::PluginMessageSocket(std::unique_ptr<AsyncSocket> socket, std::string cookie)
    : MessageSocket(ROLE_CLIENT | ROLE_SERVER, std::move(socket), std::move(cookie)) {}

bool PluginMessageSocket::Frame(uint16_t type, std::string_view data, ByteBuffer& buffer) {
  if (type == MSG_BINARY) {
    LOG(LS_ERROR) << this << ": PluginMessageSocket doesn't support binary data.";
    return false;
  }
  if (data.size() > std::numeric_limits<uint32_t>::max()) {
    LOG(LS_ERROR) << this << ": The length of " << data.size() << " bytes fits no frame.";
    return false;
  }
  WriteFrame(type, data, buffer);
  return true;
}

void PluginMessageSocket::Unframe(ByteBuffer& buffer, FrameList& frames) {
  ReadFrames(buffer, frames);
}

std::unique_ptr<MessageSocket> PluginMessageSocket::CreateAcceptedSocket(
    std::unique_ptr<AsyncSocket> socket, const std::string& cookie) {
  return std::unique_ptr<MessageSocket>(new PluginMessageSocket(std::move(socket), cookie));
}

}  // namespace mpbp
