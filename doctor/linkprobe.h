// One connection to an engine, by the plug-in's own message socket.
#ifndef MPBP_DOCTOR_LINKPROBE_H_
#define MPBP_DOCTOR_LINKPROBE_H_

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "base/physicalsocketserver.h"
#include "base/thread.h"
#include "doctor/programs.h"
#include "pluginmessagesocket.h"

namespace mpbp::doctor {

enum class Handshake {
  AUTHORIZED,
  NO_PORT_FILE,  // or one that cannot be read
  REFUSED,       // nobody takes the connection
  CLOSED,        // by the other end, before an answer
  WRONG_COOKIE,  // the answer says so
  SILENT,        // no answer in time
};

// On one thread, as whose message queue it serves while it exists: one at a time.
class LinkProbe : public SlotOwner {
 public:
  LinkProbe();
  ~LinkProbe();

  // Once.
  Handshake Shake(const std::string& port_file, int timeout_ms);

  // Waits for a text of the engine that `wanted` holds for; the others before it are dropped.
  // Nothing when none came in time or the link has ended.
  struct Text {
    std::string text;
    std::chrono::steady_clock::time_point came;
  };
  std::optional<Text> WaitForText(const std::function<bool(const std::string&)>& wanted,
                                  int timeout_ms);
  [[nodiscard]] bool Send(const std::string& text) { return socket_.Send(text); }
  bool closed() const { return closed_; }

 private:
  // Sees the answer to the cookie, of which the base says only that it was right.
  class Socket : public PluginMessageSocket {
   public:
    bool wrong_cookie() const { return wrong_cookie_; }

   protected:
    void HandleMessage(uint16_t type, const std::string& data) override;

   private:
    bool wrong_cookie_ = false;
  };

  void OnConnected(MessageSocket*);
  void OnAuthorized(MessageSocket*);
  void OnMessage(MessageSocket*, const std::string& text);
  void OnClosed(MessageSocket*, int error);
  // Serves the socket until `done` or the end of the time.
  bool Serve(const std::function<bool()>& done, int timeout_ms);

  PhysicalSocketServer server_;
  Thread thread_;
  Socket socket_;
  bool connected_ = false;
  bool authorized_ = false;
  bool closed_ = false;
  std::deque<Text> texts_;
};

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_LINKPROBE_H_
