// Looks a host name up on a thread of its own.
#ifndef MPBP_BASE_ASYNCRESOLVER_H_
#define MPBP_BASE_ASYNCRESOLVER_H_

#include <memory>

#include "base/signalthread.h"
#include "base/socketaddress.h"

namespace mpbp {

// SignalWorkDone says that the look-up is over; read the result only from then on.
class AsyncResolver : public SignalThread {
 public:
  // Finds addresses of this family only; AF_UNSPEC: of any.
  AsyncResolver(const SocketAddress& address, int family);

  bool failed() const;
  SocketAddress address() const;  // the address given, with the first address found

 private:
  class Lookup;

  explicit AsyncResolver(std::shared_ptr<Lookup> lookup);

  std::shared_ptr<Lookup> lookup_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_ASYNCRESOLVER_H_
