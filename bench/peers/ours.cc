// Our link, with our threads, on both ends.
#include <cstdio>
#include <utility>

#include "base/thread.h"
#include "base/threadmanager.h"
#include "bench/peers/connection.h"
#include "pluginmessagesocket.h"

namespace mpbp::bench {
namespace {

class Link : public Connection, public SlotOwner {
 public:
  explicit Link(Events& events)
      : events_(events), thread_(ThreadManager::Instance().WrapCurrentThread()) {}
  ~Link() override {
    connection_.reset();
    listener_.Close();
    ThreadManager::Instance().UnwrapCurrentThread();
  }

  void Send(const std::string& payload) override {
    if (!connection_->Send(payload)) fprintf(stderr, "a text was refused\n");
  }
  void Stop() override { thread_->Quit(); }

  bool Serve(const std::string& port_file) {
    listener_.set_port_file_path(port_file);
    listener_.SignalAccepted.Connect(this, &Link::OnAccepted);
    if (!listener_.Listen()) return false;
    puts("listening");
    fflush(stdout);
    thread_->ProcessMessages(kForever);
    return true;
  }

  bool Drive(const std::string& port_file) {
    auto socket = std::make_unique<PluginMessageSocket>();
    socket->set_port_file_path(port_file);
    Take(std::move(socket));
    if (!connection_->Connect(nullptr)) return false;
    thread_->ProcessMessages(kForever);
    return true;
  }

 private:
  void Take(std::unique_ptr<MessageSocket> socket) {
    connection_ = std::move(socket);
    connection_->SignalAuthorized.Connect(this, &Link::OnAuthorized);
    connection_->SignalMessage.Connect(this, &Link::OnMessage);
    connection_->SignalClosed.Connect(this, &Link::OnClosed);
  }
  void OnAccepted(MessageSocket*, std::unique_ptr<MessageSocket>& accepted) {
    Take(std::move(accepted));
  }
  void OnAuthorized(MessageSocket*) { events_.OnReady(*this); }
  void OnMessage(MessageSocket*, const std::string& text) { events_.OnFrame(*this, text); }
  void OnClosed(MessageSocket*, int) { Stop(); }

  Events& events_;
  std::unique_ptr<Thread> thread_;
  PluginMessageSocket listener_;
  std::unique_ptr<MessageSocket> connection_;
};

}  // namespace

bool ServeOurs(const std::string& port_file, Events& events) {
  return Link(events).Serve(port_file);
}

bool DriveOurs(const std::string& port_file, Events& events) {
  return Link(events).Drive(port_file);
}

}  // namespace mpbp::bench
