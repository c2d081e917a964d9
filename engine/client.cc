#include "engine/client.h"

#include <unistd.h>

#include "base/thread.h"
#include "base/timeutils.h"
#include "engine/json.h"

namespace mpbp::engine {
namespace {

constexpr char kVersion[] = "1.0";

// A text that is sent back later.
struct SlowText : MessageData {
  explicit SlowText(std::string what) : text(std::move(what)) {}
  std::string text;
};

}  // namespace

Client::Client(std::unique_ptr<MessageSocket> socket, Mode mode)
    : socket_(std::move(socket)), mode_(mode) {
  socket_->SignalAuthorized.Connect(this, &Client::OnAuthorized);
  socket_->SignalMessage.Connect(this, &Client::OnText);
  socket_->SignalClosed.Connect(this, &Client::OnClosed);
}

void Client::OnAuthorized(MessageSocket*) {
  if (mode_ == Mode::kDropAfterAuth) {
    socket_->Close();
    SignalGone(this);
    return;
  }
  if (mode_ == Mode::kNoQw) return;
  Json::Value about(Json::objectValue);
  about["engine"] = "stand-in";
  about["pid"] = static_cast<int>(getpid());
  about["version"] = kVersion;
  Send(MakeMessage("qw", about));
}

void Client::OnText(MessageSocket*, const std::string& text) {
  if (TimeDiff(Time(), silent_since_) < silent_ms_) return;
  silent_ms_ = 0;
  const std::optional<Json::Value> message = ParseMessage(text);
  if (message) {
    const std::string word = (*message)[0].asString();
    if (const Action answer = FindAnswer(word)) {
      if (!(this->*answer)(*message, text)) Send(MakeMessage("unasked", text));
      return;
    }
    const Action request = FindRequest(word);
    if (request && (this->*request)(*message, text)) return;
  }
  Send(EchoOf(text));
}

void Client::OnClosed(MessageSocket*, int) { SignalGone(this); }

void Client::PostSlow(int ms, const std::string& text) {
  ++slow_count_;
  Thread::Current()->PostDelayed(ms, this, 0, std::make_unique<SlowText>(text));
}

void Client::OnMessage(Message* message) {
  --slow_count_;
  Send(EchoOf(static_cast<SlowText*>(message->data.get())->text));
}

void Client::Send(const std::string& text) {
  if (TimeDiff(Time(), silent_since_) < silent_ms_) return;
  // A link that is over loses its texts; its end is reported on its own.
  static_cast<void>(socket_->Send(text));
}

void Client::Send(const Json::Value& message) { Send(WriteMessage(message)); }

}  // namespace mpbp::engine
