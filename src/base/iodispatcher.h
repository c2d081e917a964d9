// One watched descriptor of a PhysicalSocketServer.
#ifndef MPBP_BASE_IODISPATCHER_H_
#define MPBP_BASE_IODISPATCHER_H_

#include <cstdint>

namespace mpbp {

// Both what a dispatcher asks for and what occurred.
enum EventFlag : uint8_t {
  EVENT_READ = 1,     // data may be read
  EVENT_WRITE = 2,    // data may be written
  EVENT_CONNECT = 4,  // a non-blocking connect finished
  EVENT_CLOSE = 8,    // the peer closed or the socket failed
  EVENT_ACCEPT = 16,  // a listening socket has a connection waiting
};

class IoDispatcher {
 public:
  IoDispatcher() = default;
  IoDispatcher(const IoDispatcher&) = delete;
  IoDispatcher& operator=(const IoDispatcher&) = delete;
  virtual ~IoDispatcher() = default;

  virtual uint32_t GetRequestedEvents() const = 0;
  // First, to update state: raises nothing.
  virtual void OnPreEvent(uint32_t flags) = 0;
  // Second, to raise signals. When it returns, the dispatcher may be gone.
  virtual void OnEvent(uint32_t flags, int error) = 0;
  virtual int GetDescriptor() const = 0;
  // Whether a readable descriptor is really at the end of its stream.
  virtual bool IsDescriptorClosed() const = 0;
};

}  // namespace mpbp

#endif  // MPBP_BASE_IODISPATCHER_H_
