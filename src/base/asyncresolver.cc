#include "base/asyncresolver.h"

#include <netdb.h>

#include <cstring>

namespace mpbp {

// Written by the worker before it posts its end, read by the owner after that.
class AsyncResolver::Lookup : public SignalThread::Work {
 public:
  Lookup(const SocketAddress& address, int family) : address_(address), family_(family) {}

  void DoWork() override {
    addrinfo hints{};
    hints.ai_family = family_;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address_.host().c_str(), nullptr, &hints, &found) != 0) return;
    for (const addrinfo* info = found; info && failed_; info = info->ai_next) {
      sockaddr_storage storage{};
      if (info->ai_addrlen > sizeof(storage)) continue;
      memcpy(&storage, info->ai_addr, info->ai_addrlen);
      const SocketAddress resolved = SocketAddress::FromSockAddr(storage);
      if (resolved.family() == AF_UNSPEC) continue;
      address_.SetResolved(resolved);
      failed_ = false;
    }
    freeaddrinfo(found);
  }

  bool failed() const { return failed_; }
  const SocketAddress& address() const { return address_; }

 private:
  SocketAddress address_;
  const int family_;
  bool failed_ = true;
};

AsyncResolver::AsyncResolver(const SocketAddress& address, int family)
    : AsyncResolver(std::make_shared<Lookup>(address, family)) {}

AsyncResolver::AsyncResolver(std::shared_ptr<Lookup> lookup)
    : SignalThread(lookup), lookup_(std::move(lookup)) {}

bool AsyncResolver::failed() const { return lookup_->failed(); }

SocketAddress AsyncResolver::address() const { return lookup_->address(); }

}  // namespace mpbp
