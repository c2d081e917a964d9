// One plug-in that is linked to the stand-in engine.
#ifndef MPBP_ENGINE_CLIENT_H_
#define MPBP_ENGINE_CLIENT_H_

#include <json/value.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "base/messagehandler.h"
#include "base/signal.h"
#include "engine/mode.h"
#include "messagesocket.h"

namespace mpbp::engine {

// Obeys the requests of the page, passes on the answers of the plug-in, echoes every other text.
// On the thread of its socket.
class Client : public SlotOwner, private MessageHandler {
 public:
  Client(std::unique_ptr<MessageSocket> socket, Mode mode);

  // The link is over, or the page asked for its end. The handler may delete this object.
  Signal<Client*> SignalGone;
  Signal<> SignalQuit;  // the page asked the engine to end

 private:
  void OnAuthorized(MessageSocket* socket);
  void OnText(MessageSocket* socket, const std::string& text);
  void OnClosed(MessageSocket* socket, int error);
  void OnMessage(Message* message) override;

  // To the plug-in, which passes it on to the page unless it takes it for itself. Nothing while
  // silent.
  void Send(const std::string& text);
  void Send(const Json::Value& message);
  void PostSlow(int ms, const std::string& text);

  // What is done about one kind of message; `text` is what it was read from. False, with nothing
  // done, when the message is malformed or, for an answer, was not asked for.
  using Action = bool (Client::*)(const Json::Value& message, const std::string& text);

  // What a page asks for, in requests.cc. FindRequest: null for an unknown word.
  static Action FindRequest(const std::string& word);
  bool Echo(const Json::Value& message, const std::string& text);
  bool Crash(const Json::Value& message, const std::string& text);
  bool Drop(const Json::Value& message, const std::string& text);
  bool Silent(const Json::Value& message, const std::string& text);
  bool Slow(const Json::Value& message, const std::string& text);
  bool Many(const Json::Value& message, const std::string& text);
  bool Large(const Json::Value& message, const std::string& text);
  bool Quit(const Json::Value& message, const std::string& text);
  bool AskHttp(const Json::Value& message, const std::string& text);
  bool AskProxy(const Json::Value& message, const std::string& text);
  bool AskPermission(const Json::Value& message, const std::string& text);
  bool BeginRemoting(const Json::Value& message, const std::string& text);
  bool StopRemoting(const Json::Value& message, const std::string& text);

  // What the plug-in answers or says by itself, in answers.cc. FindAnswer: null for an unknown
  // word.
  static Action FindAnswer(const std::string& word);
  bool HttpAnswered(const Json::Value& message, const std::string& text);
  bool ProxyAnswered(const Json::Value& message, const std::string& text);
  bool PermissionAnswered(const Json::Value& message, const std::string& text);
  bool RemotingEnded(const Json::Value& message, const std::string& text);
  bool Commented(const Json::Value& message, const std::string& text);

  const std::unique_ptr<MessageSocket> socket_;
  const Mode mode_;
  uint32_t silent_since_ = 0;  // Time()
  int silent_ms_ = 0;          // 0: not silent
  int slow_count_ = 0;         // texts that wait to be sent back
  uint32_t next_id_ = 1000;    // of what is asked of the plug-in, whose own ids are lower
  std::set<uint32_t> http_asked_;
  std::map<uint32_t, std::string> proxy_asked_;  // the URL, by id
  std::map<uint32_t, int> permission_asked_;     // the kind, by tag
  std::set<std::string> remoting_;               // the ids of running sessions
};

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_CLIENT_H_
