#include "tests/support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace mpbp::test {
namespace {

// False when the other side is gone.
bool SendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// False when the other side is gone before a whole request was there.
bool ReadRequest(int fd, HttpServerRequest& request) {
  char buffer[4096];
  size_t head_end = std::string::npos;
  size_t length = 0;
  while (head_end == std::string::npos || request.raw.size() < head_end + length) {
    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    if (got <= 0) return false;
    request.raw.append(buffer, static_cast<size_t>(got));
    const size_t blank = request.raw.find("\r\n\r\n");
    if (head_end != std::string::npos || blank == std::string::npos) continue;
    head_end = blank + 4;
    const size_t first_end = request.raw.find("\r\n");
    const std::string first = request.raw.substr(0, first_end);
    request.method = first.substr(0, first.find(' '));
    request.path = first.substr(request.method.size() + 1);
    request.path.erase(std::min(request.path.find(' '), request.path.size()));
    request.head = request.raw.substr(first_end + 2, head_end - first_end - 4);
    length = std::strtoul(request.Header("content-length").c_str(), nullptr, 10);
  }
  request.body = request.raw.substr(head_end);
  return true;
}

std::string Chunked(const std::string& body) {
  constexpr size_t kChunk = 1000;
  std::string out;
  for (size_t at = 0; at < body.size(); at += kChunk) {
    const std::string part = body.substr(at, kChunk);
    char length[32];
    std::snprintf(length, sizeof length, "%zx\r\n", part.size());
    out += length + part + "\r\n";
  }
  return out + "0\r\n\r\n";
}

std::string Head(const HttpServerResponse& response) {
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " + response.reason + "\r\n";
  for (const auto& [name, value] : response.headers) head += name + ": " + value + "\r\n";
  head += response.chunked ? "Transfer-Encoding: chunked\r\n"
                           : "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
  return head + "Connection: close\r\n\r\n";
}

}  // namespace

std::string HttpServerRequest::Header(const std::string& name) const {
  for (size_t at = 0; at < head.size();) {
    const size_t end = head.find("\r\n", at);
    const std::string line = head.substr(at, end - at);
    at = end + 2;
    const size_t colon = line.find(':');
    if (colon != name.size() || strncasecmp(line.c_str(), name.c_str(), colon) != 0) continue;
    const size_t value = line.find_first_not_of(' ', colon + 1);
    return value == std::string::npos ? "" : line.substr(value);
  }
  return "";
}

HttpServerResponse RedirectTo(const std::string& url, int status) {
  HttpServerResponse response;
  response.status = status;
  response.reason = "Elsewhere";
  response.headers = {{"Location", url}};
  response.body = "not here";
  return response;
}

HttpServer::HttpServer(Handler handler)
    : handler_(std::move(handler)), listen_fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listen_fd_, generic, length) != 0 || listen(listen_fd_, 64) != 0 ||
      getsockname(listen_fd_, generic, &length) != 0) {
    return;
  }
  port_ = ntohs(address.sin_port);
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
    connections_.push_back({fd, std::thread([this, fd] { Serve(fd); })});
    if (stopping_) shutdown(fd, SHUT_RDWR);
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
    if (response.hang) {
      char byte = 0;
      while (recv(fd, &byte, 1, 0) > 0) {
      }
    } else if (!response.drop) {
      const std::string body = response.chunked ? Chunked(response.body) : response.body;
      const size_t end = std::min(response.break_after.value_or(body.size()), body.size());
      if (SendAll(fd, Head(response))) SendAll(fd, std::string_view(body).substr(0, end));
    }
  }
  shutdown(fd, SHUT_RDWR);  // Stop closes it, so that the number is not taken again meanwhile
}

void HttpServer::Stop() {
  if (stopping_.exchange(true)) return;
  shutdown(listen_fd_, SHUT_RDWR);
  if (accept_thread_.joinable()) accept_thread_.join();
  close(listen_fd_);
  {
    std::lock_guard lock(mutex_);
    for (const Connection& connection : connections_) shutdown(connection.fd, SHUT_RDWR);
  }
  // The list no longer changes; the threads may still want the lock.
  for (Connection& connection : connections_) {
    connection.thread.join();
    close(connection.fd);
  }
}

}  // namespace mpbp::test
