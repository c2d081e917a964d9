#include "connector/nativemessages.h"

#include <cstdint>

namespace mpbp {

NativeFrame ReadNativeMessage(ByteBuffer& input, std::string* json) {
  const ByteBuffer::ReadPosition start = input.GetReadPosition();
  uint32_t length = 0;
  if (!input.ReadUInt32(&length)) return NativeFrame::PARTIAL;
  if (length == 0 || length > kMaxNativeMessage) return NativeFrame::BROKEN;
  json->clear();
  if (input.ReadString(json, length)) return NativeFrame::COMPLETE;
  static_cast<void>(input.SetReadPosition(start));  // nothing was written meanwhile
  return NativeFrame::PARTIAL;
}

void WriteNativeMessage(std::string_view json, ByteBuffer& output) {
  output.WriteUInt32(static_cast<uint32_t>(json.size()));
  output.WriteBytes(json);
}

}  // namespace mpbp
