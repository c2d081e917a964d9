#include "bench/peers/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

#include "portfileutils.h"

namespace mpbp::bench {
namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

UniqueFd Failed(const char* what) {
  perror(what);
  return UniqueFd();
}

bool SetNoDelay(const UniqueFd& fd) {
  const int on = 1;
  return setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0;
}

}  // namespace

bool Announce(const std::string& port_file, int port) {
  if (!WritePortFile(port_file, port, std::string(kPortFileCookieSize, '-'))) return false;
  puts("listening");
  return fflush(stdout) == 0;
}

UniqueFd AcceptOne(const std::string& port_file) {
  UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (!listener || bind(listener.get(), generic, length) != 0 || listen(listener.get(), 1) != 0 ||
      getsockname(listener.get(), generic, &length) != 0) {
    return Failed("listen");
  }
  if (!Announce(port_file, ntohs(address.sin_port))) return Failed("port file");
  UniqueFd connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection || !SetNoDelay(connection)) return Failed("accept");
  return connection;
}

UniqueFd ConnectTo(const std::string& port_file) {
  int port = 0;
  std::string cookie;
  if (!ReadPortFile(port_file, &port, &cookie)) return Failed("port file");
  UniqueFd connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = Loopback(port);
  if (!connection || !SetNoDelay(connection) ||
      connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
          0) {
    return Failed("connect");
  }
  return connection;
}

void AppendFrame(std::string_view payload, std::string& out) {
  char header[PluginMessageSocket::kHeaderSize];
  const uint16_t type = htons(MSG_DATA);
  const uint32_t length = htonl(static_cast<uint32_t>(payload.size()));
  memcpy(header, &type, sizeof(type));
  memcpy(header + sizeof(type), &length, sizeof(length));
  out.append(header, sizeof(header)).append(payload);
}

size_t FrameReader::PayloadLength(std::string_view header) {
  uint32_t length = 0;
  memcpy(&length, header.data() + sizeof(uint16_t), sizeof(length));
  return ntohl(length);
}

}  // namespace mpbp::bench
