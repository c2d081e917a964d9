// An internet address with a port, and perhaps the host name that it belongs to.
#ifndef MPBP_BASE_SOCKETADDRESS_H_
#define MPBP_BASE_SOCKETADDRESS_H_

#include <sys/socket.h>

#include <cstdint>
#include <string>

namespace mpbp {

class SocketAddress {
 public:
  SocketAddress() = default;
  // `host`: an IPv4 or IPv6 address in text form, or a name to be resolved. `port` in host order.
  SocketAddress(const std::string& host, uint16_t port);
  // From the system's form; empty for a family that is not AF_INET or AF_INET6.
  static SocketAddress FromSockAddr(const sockaddr_storage& storage);
  static SocketAddress Loopback(uint16_t port);  // 127.0.0.1

  // Fills the system's form and returns its length; 0 for an unresolved or empty address.
  socklen_t ToSockAddr(sockaddr_storage* storage) const;

  // AF_INET or AF_INET6, or AF_UNSPEC when there is no address yet.
  int family() const { return address_.ss_family; }
  uint16_t port() const { return port_; }
  const std::string& host() const { return host_; }
  // A name without an address.
  bool IsUnresolved() const { return family() == AF_UNSPEC && !host_.empty(); }
  // The any-address of its family, or no address at all.
  bool IsAny() const;
  // Takes the address of `resolved`, keeps the port.
  void SetResolved(const SocketAddress& resolved);
  std::string ToString() const;  // "127.0.0.1:80", "[::1]:80", "name:80"

 private:
  std::string host_;
  uint16_t port_ = 0;
  sockaddr_storage address_{};  // without the port
};

}  // namespace mpbp

#endif  // MPBP_BASE_SOCKETADDRESS_H_
