#include <sys/socket.h>

#include <cstdio>

#include "base/bytebuffer.h"
#include "bench/peers/load.h"
#include "bench/peers/sockets.h"
#include "portfileutils.h"

namespace mpbp::bench {
namespace {

bool WriteAll(const UniqueFd& fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// Reads until `bytes` have come.
bool Skip(const UniqueFd& fd, size_t bytes) {
  char buffer[4096];
  while (bytes > 0) {
    const ssize_t count = recv(fd.get(), buffer, std::min(bytes, sizeof(buffer)), 0);
    if (count <= 0) return false;
    bytes -= static_cast<size_t>(count);
  }
  return true;
}

bool LinkHandshake(const UniqueFd& fd, const std::string& port_file) {
  int port = 0;
  std::string cookie;
  if (!ReadPortFile(port_file, &port, &cookie)) return false;
  ByteBuffer frame;
  WriteFrame(MSG_COOKIE, cookie, frame);
  return WriteAll(fd, {frame.Data(), frame.Length()}) && Skip(fd, frame.Length());
}

bool WebSocketHandshake(const UniqueFd& fd) {
  // The key is that of RFC 6455; nobody looks at what becomes of it.
  if (!WriteAll(fd,
                "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\n"
                "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: bench\r\n\r\n")) {
    return false;
  }
  std::string answer;
  char byte = 0;
  while (!answer.ends_with("\r\n\r\n")) {
    if (recv(fd.get(), &byte, 1, 0) != 1) return false;
    answer += byte;
  }
  return answer.starts_with("HTTP/1.1 101 ");
}

// A binary message of a client: RFC 6455, section 5.2. The mask is 0, so the payload is as it was.
void AppendWebSocketMessage(std::string_view payload, std::string& out) {
  constexpr char kBinary = '\x82';
  constexpr unsigned kMasked = 0x80;
  const size_t size = payload.size();
  const size_t length_bytes = size < 126 ? 0 : size < 65536 ? 2 : 8;
  out += kBinary;
  out += static_cast<char>(kMasked | (length_bytes == 0 ? size : length_bytes == 2 ? 126 : 127));
  for (size_t i = length_bytes; i-- > 0;) out += static_cast<char>(size >> (8 * i));
  out.append(4, '\0').append(payload);
}

}  // namespace

bool DriveBatched(const std::string& receiver, const std::string& port_file, const Load& load) {
  const bool web_sockets = receiver == "libwebsockets";
  const UniqueFd fd = ConnectTo(port_file);
  const bool ready = fd && (web_sockets          ? WebSocketHandshake(fd)
                            : receiver == "ours" ? LinkHandshake(fd, port_file)
                                                 : true);
  if (!ready) {
    fprintf(stderr, "no connection with %s\n", receiver.c_str());
    return false;
  }
  const auto append = web_sockets ? AppendWebSocketMessage : AppendFrame;
  std::string window;
  for (size_t i = 1; i < load.window; ++i) append(load.Frame(), window);
  append(load.LastFrame(), window);
  std::string answer;
  append(std::string(std::min(load.frame_size, kAnswerSize), 'x'), answer);
  // What a server sends has no mask.
  const size_t answer_size = answer.size() - (web_sockets ? 4 : 0);

  Times times(load);
  for (size_t i = 0; i < load.outstanding; ++i) {
    if (!WriteAll(fd, window)) return false;
  }
  while (Skip(fd, answer_size)) {
    if (times.OnAnswer()) {
      times.Print();
      return true;
    }
    if (!WriteAll(fd, window)) break;
  }
  fprintf(stderr, "the connection ended early\n");
  return false;
}

}  // namespace mpbp::bench
