#include "enginecheck/enginelink.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "messagesocket.h"
#include "pluginmessagesocket.h"

namespace mpbp::enginecheck {
namespace {

constexpr int kConnectMs = 5000;
// What is kept of an engine that sends on and on; its connection counts as closed then.
constexpr size_t kMostInput = size_t{256} << 20;
constexpr size_t kMostTexts = 10'000;

// 0 or an errno value.
int FinishConnect(int fd) {
  pollfd ready{fd, POLLOUT, 0};
  const Deadline deadline(kConnectMs);
  while (poll(&ready, 1, deadline.Left()) < 0 && errno == EINTR && !deadline.Passed()) continue;
  if (ready.revents == 0) return ETIMEDOUT;
  int error = 0;
  socklen_t length = sizeof(error);
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

}  // namespace

std::string FrameBytes(uint16_t type, const std::string& payload) {
  ByteBuffer buffer;
  WriteFrame(type, payload, buffer);
  return {buffer.Data(), buffer.Length()};
}

std::optional<EngineLink> EngineLink::Connect(uint32_t host, int port, int* error) {
  UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd) {
    *error = errno;
    return std::nullopt;
  }
  const int on = 1;
  setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));  // else pieces come as one
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(static_cast<uint16_t>(port));
  *error = 0;
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    *error = errno == EINPROGRESS ? FinishConnect(fd.get()) : errno;
  }
  if (*error != 0) return std::nullopt;
  return EngineLink(std::move(fd));
}

bool EngineLink::Write(std::string_view bytes, const Deadline& deadline) {
  while (!bytes.empty() && !closed_) {
    const ssize_t count = send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count > 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      if (!Serve(true, deadline)) return false;
    } else if (errno != EINTR) {
      closed_ = true;
    }
  }
  return bytes.empty();
}

std::optional<Frame> EngineLink::Read(const Deadline& deadline) {
  while (frames_.empty()) {
    if (closed_ || !Serve(false, deadline)) return std::nullopt;
  }
  Frame frame = std::move(frames_.front());
  frames_.pop_front();
  frames_size_ -= frame.second.size();
  return frame;
}

std::optional<std::string> EngineLink::ReadCookieResponse(const Deadline& deadline,
                                                          std::vector<std::string>* texts) {
  while (std::optional<Frame> frame = Read(deadline)) {
    if (frame->first == MSG_COOKIE_RESPONSE) return std::move(frame->second);
    if (frame->first != MSG_DATA || !texts) continue;
    if (texts->size() == kMostTexts) break;
    texts->push_back(std::move(frame->second));
  }
  return std::nullopt;
}

bool EngineLink::Serve(bool writing, const Deadline& deadline) {
  pollfd ready{fd_.get(), static_cast<int16_t>(writing ? POLLIN | POLLOUT : POLLIN), 0};
  const int left = deadline.Left();
  if (left == 0) return false;
  if (poll(&ready, 1, left) > 0 && (ready.revents & ~POLLOUT)) ReadBytes();
  return true;
}

void EngineLink::ReadBytes() {
  char bytes[65536];
  const ssize_t count = recv(fd_.get(), bytes, sizeof(bytes), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  closed_ = count <= 0 || input_->Length() + frames_size_ > kMostInput;
  if (closed_) return;
  input_->WriteBytes({bytes, static_cast<size_t>(count)});
  FrameList frames;
  ReadFrames(*input_, frames);
  for (auto& frame : frames) {
    frames_size_ += frame.second.size();
    frames_.push_back(std::move(frame));
  }
}

}  // namespace mpbp::enginecheck
