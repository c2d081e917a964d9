#include "engine/engine.h"

#include <algorithm>

#include "base/logging.h"
#include "base/thread.h"
#include "portfileutils.h"

namespace mpbp::engine {

Engine::Engine(Mode mode, int idle_seconds, size_t max_clients)
    : mode_(mode), idle_seconds_(idle_seconds), max_clients_(max_clients), listener_(mode) {
  listener_.SignalAccepted.Connect(this, &Engine::OnAccepted);
}

Engine::~Engine() = default;

bool Engine::Start() {
  const std::string path = GetPortFilePath(kPluginPortFile).pathname();
  if (path.empty()) {
    LOG(LS_ERROR) << "There is no folder for the port file.";
    return false;
  }
  listener_.set_port_file_path(path);
  if (!listener_.Listen()) return false;
  WaitForClient();
  return true;
}

void Engine::OnAccepted(MessageSocket*, std::unique_ptr<MessageSocket>& socket) {
  if (mode_ == Mode::kDropAfterConnect || clients_.size() >= max_clients_) return;
  Thread::Current()->Clear(this);  // somebody came
  clients_.push_back(std::make_unique<Client>(std::move(socket), mode_));
  clients_.back()->SignalGone.Connect(this, &Engine::OnClientGone);
  clients_.back()->SignalQuit.Connect(this, &Engine::OnQuit);
}

void Engine::OnClientGone(Client* client) {
  const auto found = std::find_if(clients_.begin(), clients_.end(),
                                  [client](const auto& entry) { return entry.get() == client; });
  if (found == clients_.end()) return;
  Thread::Current()->Dispose(std::move(*found));  // it is on the stack
  clients_.erase(found);
  if (clients_.empty()) WaitForClient();
}

void Engine::OnQuit() { Thread::Current()->Quit(); }

void Engine::OnMessage(Message*) { Thread::Current()->Quit(); }

void Engine::WaitForClient() { Thread::Current()->PostDelayed(idle_seconds_ * 1000, this); }

}  // namespace mpbp::engine
