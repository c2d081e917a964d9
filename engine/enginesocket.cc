#include "engine/enginesocket.h"

#include "portfileutils.h"

namespace mpbp::engine {

void EngineSocket::HandleMessage(uint16_t type, const std::string& data) {
  if (type == MSG_COOKIE && mode_ == Mode::kMuteHandshake) return;
  if (type == MSG_COOKIE && mode_ == Mode::kBadCookie) {
    SendFramed(MSG_COOKIE_RESPONSE, "");
    return;
  }
  PluginMessageSocket::HandleMessage(type, data);
}

bool EngineSocket::WritePortFile(int port, const std::string& cookie) {
  return mode_ == Mode::kNoPortFile || PluginMessageSocket::WritePortFile(port, cookie);
}

bool EngineSocket::DeletePortFile() {
  int file_port = 0;
  std::string file_cookie;
  const bool own =
      ReadPortFile(&file_port, &file_cookie) && file_port == port() && file_cookie == cookie();
  return !own || PluginMessageSocket::DeletePortFile();
}

std::unique_ptr<MessageSocket> EngineSocket::CreateAcceptedSocket(
    std::unique_ptr<AsyncSocket> socket, const std::string& cookie) {
  return std::unique_ptr<MessageSocket>(new EngineSocket(std::move(socket), cookie, mode_));
}

}  // namespace mpbp::engine
