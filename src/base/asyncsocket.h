#ifndef MPBP_BASE_ASYNCSOCKET_H_
#define MPBP_BASE_ASYNCSOCKET_H_

#include "base/signal.h"
#include "base/socket.h"

namespace mpbp {

// A socket that reports what happens to it. Handlers may close or delete the socket.
class AsyncSocket : public Socket {
 public:
  Signal<AsyncSocket*> SignalReadEvent;  // also: a connection waits to be accepted
  Signal<AsyncSocket*> SignalWriteEvent;
  Signal<AsyncSocket*> SignalConnectEvent;
  Signal<AsyncSocket*, int> SignalCloseEvent;  // the error, 0 when the peer closed
};

}  // namespace mpbp

#endif  // MPBP_BASE_ASYNCSOCKET_H_
