// The stand-in engine: listens, keeps its clients, ends when nobody needs it.
#ifndef MPBP_ENGINE_ENGINE_H_
#define MPBP_ENGINE_ENGINE_H_

#include <cstddef>
#include <list>
#include <memory>

#include "base/messagehandler.h"
#include "base/signal.h"
#include "engine/client.h"
#include "engine/enginesocket.h"
#include "engine/mode.h"

namespace mpbp::engine {

// On one thread that has a Thread object, which ends (Quit) when the engine does.
class Engine : public SlotOwner, private MessageHandler {
 public:
  // A client beyond `max_clients` is disconnected.
  Engine(Mode mode, int idle_seconds, size_t max_clients);
  ~Engine() override;

  // Listens and writes the port file. False on failure, with an error line.
  [[nodiscard]] bool Start();

 private:
  void OnAccepted(MessageSocket* listener, std::unique_ptr<MessageSocket>& socket);
  void OnClientGone(Client* client);
  void OnQuit();
  // Nobody came for too long.
  void OnMessage(Message* message) override;
  void WaitForClient();

  const Mode mode_;
  const int idle_seconds_;
  const size_t max_clients_;
  EngineSocket listener_;
  std::list<std::unique_ptr<Client>> clients_;
};

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_ENGINE_H_
