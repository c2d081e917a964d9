#include "base/socketaddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

namespace mpbp {
namespace {

sockaddr_in& V4(sockaddr_storage& storage) { return reinterpret_cast<sockaddr_in&>(storage); }
sockaddr_in6& V6(sockaddr_storage& storage) { return reinterpret_cast<sockaddr_in6&>(storage); }
const sockaddr_in& V4(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in&>(storage);
}
const sockaddr_in6& V6(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in6&>(storage);
}

std::string AddressText(const sockaddr_storage& storage) {
  char text[INET6_ADDRSTRLEN] = "";
  const void* bytes = storage.ss_family == AF_INET6
                          ? static_cast<const void*>(&V6(storage).sin6_addr)
                          : static_cast<const void*>(&V4(storage).sin_addr);
  return inet_ntop(storage.ss_family, bytes, text, sizeof(text)) ? text : "";
}

}  // namespace

SocketAddress::SocketAddress(const std::string& host, uint16_t port) : host_(host), port_(port) {
  if (inet_pton(AF_INET, host.c_str(), &V4(address_).sin_addr) == 1) {
    address_.ss_family = AF_INET;
  } else if (inet_pton(AF_INET6, host.c_str(), &V6(address_).sin6_addr) == 1) {
    address_.ss_family = AF_INET6;
  }
}

SocketAddress SocketAddress::FromSockAddr(const sockaddr_storage& storage) {
  SocketAddress result;
  if (storage.ss_family != AF_INET && storage.ss_family != AF_INET6) return result;
  result.address_ = storage;
  if (storage.ss_family == AF_INET) {
    result.port_ = ntohs(V4(storage).sin_port);
    V4(result.address_).sin_port = 0;
  } else {
    result.port_ = ntohs(V6(storage).sin6_port);
    V6(result.address_).sin6_port = 0;
  }
  result.host_ = AddressText(result.address_);
  return result;
}

SocketAddress SocketAddress::Loopback(uint16_t port) { return {"127.0.0.1", port}; }

socklen_t SocketAddress::ToSockAddr(sockaddr_storage* storage) const {
  *storage = address_;
  if (family() == AF_INET) {
    V4(*storage).sin_port = htons(port_);
    return sizeof(sockaddr_in);
  }
  if (family() == AF_INET6) {
    V6(*storage).sin6_port = htons(port_);
    return sizeof(sockaddr_in6);
  }
  return 0;
}

bool SocketAddress::IsAny() const {
  if (family() == AF_INET) return V4(address_).sin_addr.s_addr == htonl(INADDR_ANY);
  if (family() == AF_INET6) return IN6_IS_ADDR_UNSPECIFIED(&V6(address_).sin6_addr);
  return true;
}

void SocketAddress::SetResolved(const SocketAddress& resolved) { address_ = resolved.address_; }

std::string SocketAddress::ToString() const {
  const std::string host = family() == AF_INET6 ? "[" + host_ + "]" : host_;
  return host + ":" + std::to_string(port_);
}

}  // namespace mpbp
