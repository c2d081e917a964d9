// The engine's end of the link.
#ifndef MPBP_ENGINE_ENGINESOCKET_H_
#define MPBP_ENGINE_ENGINESOCKET_H_

#include <memory>
#include <string>

#include "engine/mode.h"
#include "pluginmessagesocket.h"

namespace mpbp::engine {

// Listens, and makes sockets of its own class for the connections. Deletes the port file only as
// long as it is its own: an engine that does not keep to the lock may have replaced it.
class EngineSocket : public PluginMessageSocket {
 public:
  explicit EngineSocket(Mode mode) : mode_(mode) {}
  ~EngineSocket() override { Close(); }  // here: the base would not ask whose file it is

 protected:
  void HandleMessage(uint16_t type, const std::string& data) override;
  bool WritePortFile(int port, const std::string& cookie) override;
  bool DeletePortFile() override;
  std::unique_ptr<MessageSocket> CreateAcceptedSocket(std::unique_ptr<AsyncSocket> socket,
                                                      const std::string& cookie) override;

 private:
  EngineSocket(std::unique_ptr<AsyncSocket> socket, std::string cookie, Mode mode)
      : PluginMessageSocket(std::move(socket), std::move(cookie)), mode_(mode) {}

  const Mode mode_;
};

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_ENGINESOCKET_H_
