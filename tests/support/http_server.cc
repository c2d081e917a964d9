#include "tests/support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

namespace mpbp::test {
namespace {

// False when the other side is gone before a whole request was there.
bool ReadRequest(int fd, HttpServerRequest& request) {
  std::string raw;
  size_t head_end = std::string::npos;
  size_t length = 0;
  while (head_end == std::string::npos || raw.size() < head_end + length) {
    char buffer[4096];
    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    if (got <= 0) return false;
    raw.append(buffer, static_cast<size_t>(got));
    if (head_end != std::string::npos || raw.find("\r\n\r\n") == std::string::npos) continue;
    head_end = raw.find("\r\n\r\n") + 4;
    const size_t first_end = raw.find("\r\n");
    std::istringstream(raw.substr(0, first_end)) >> request.method >> request.path;
    request.head = raw.substr(first_end + 2, head_end - first_end - 4);
    const char* const value = strcasestr(request.head.c_str(), "content-length:");
    if (value != nullptr) length = std::strtoul(value + sizeof("content-length"), nullptr, 10);
  }
  request.body = raw.substr(head_end);
  return true;
}

std::string BytesOf(const HttpServerResponse& response) {
  if (response.status.empty()) return "";
  const std::string length = "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
  return "HTTP/1.1 " + response.status + "\r\n" +
         (response.headers.empty() ? length : response.headers) + "Connection: close\r\n\r\n" +
         response.body;
}

}  // namespace

HttpServerResponse RedirectTo(const std::string& url, int status) {
  return {"", std::to_string(status) + " Elsewhere",
          "Location: " + url + "\r\nContent-Length: 0\r\n"};
}

HttpServer::HttpServer(Handler handler)
    : handler_(std::move(handler)), listen_fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listen_fd_, generic, length) == 0 && listen(listen_fd_, 64) == 0 &&
      getsockname(listen_fd_, generic, &length) == 0) {
    port_ = ntohs(address.sin_port);
  }
  accept_thread_ = std::thread([this] { Accept(); });
}

std::string HttpServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<HttpServerRequest> HttpServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void HttpServer::Accept() {
  while (!stopping_) {
    const int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::lock_guard lock(mutex_);
    connections_.emplace_back(fd, std::thread([this, fd] { Serve(fd); }));
  }
}

void HttpServer::Serve(int fd) {
  HttpServerRequest request;
  if (ReadRequest(fd, request)) {
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(request);
    }
    const HttpServerResponse response = handler_(request);
    char byte = 0;
    while (response.hang && recv(fd, &byte, 1, 0) > 0) {
    }
    if (!response.hang) {
      // Blocks until all is on its way, or the other side is gone.
      const std::string bytes = BytesOf(response);
      send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
  }
  shutdown(fd, SHUT_RDWR);  // Stop closes it, so that the number is not taken again meanwhile
}

void HttpServer::Stop() {
  if (stopping_.exchange(true)) return;
  shutdown(listen_fd_, SHUT_RDWR);
  accept_thread_.join();
  close(listen_fd_);
  // The list no longer changes; the threads may still want the lock.
  for (const auto& [fd, thread] : connections_) shutdown(fd, SHUT_RDWR);
  for (auto& [fd, thread] : connections_) {
    thread.join();
    close(fd);
  }
}

}  // namespace mpbp::test
