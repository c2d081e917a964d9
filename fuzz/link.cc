// What a peer sends over an open connection, on either end of the link: no text and no host
// description counts before the right cookie, and the cookie is shown to nobody who has not got it.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fuzz/choices.h"
#include "fuzz/fuzz.h"
#include "pluginmessagesocket.h"

namespace mpbp::fuzz {
namespace {

constexpr char kCookie[] = "0123456789abcdef";
constexpr char kOwnDescription[] = "{\"url\":\"https://www.murmel.example/\"}";

// The wire, held by the target. It takes and gives bytes in pieces.
struct Wire {
  std::string_view incoming;
  std::string sent;
  Choices choices;
};

class WireSocket : public AsyncSocket {
 public:
  explicit WireSocket(Wire& wire) : wire_(wire) {}

  int Send(const void* data, size_t length) override {
    const size_t count = wire_.choices.Between(0, std::min<size_t>(length, 40));
    if (count == 0) return Fail(EWOULDBLOCK);
    wire_.sent.append(static_cast<const char*>(data), count);
    return static_cast<int>(count);
  }
  int Recv(void* buffer, size_t length) override {
    const size_t most = std::min({length, wire_.incoming.size(), size_t{100}});
    if (most == 0) return Fail(EWOULDBLOCK);
    const size_t count = wire_.choices.Between(1, most);
    memcpy(buffer, wire_.incoming.data(), count);
    wire_.incoming.remove_prefix(count);
    return static_cast<int>(count);
  }
  int Connect(const SocketAddress&) override { return 0; }
  int Close() override { return 0; }
  int GetError() const override { return error_; }
  void SetError(int error) override { error_ = error; }
  SocketState GetState() const override { return SOCKET_CONNECTED; }

  // What a connection is not asked for.
  SocketAddress GetLocalAddress() const override { return {}; }
  SocketAddress GetRemoteAddress() const override { return {}; }
  int Bind(const SocketAddress&) override { return Fail(ENOTSUP); }
  int SendTo(const void*, size_t, const SocketAddress&) override { return Fail(ENOTSUP); }
  int RecvFrom(void*, size_t, SocketAddress*) override { return Fail(ENOTSUP); }
  int Listen(int) override { return Fail(ENOTSUP); }
  std::unique_ptr<AsyncSocket> Accept(SocketAddress*) override { return nullptr; }
  int EstimateMTU(uint16_t*) override { return Fail(ENOTSUP); }
  int GetOption(SocketOption, int*) override { return Fail(ENOTSUP); }
  int SetOption(SocketOption, int) override { return Fail(ENOTSUP); }

 private:
  int Fail(int error) {
    error_ = error;
    return -1;
  }

  Wire& wire_;
  int error_ = 0;
};

// One end of the link, and what it raised.
class End : public PluginMessageSocket {
 public:
  End() { Watch(); }  // one that connects
  explicit End(std::unique_ptr<AsyncSocket> accepted)
      : PluginMessageSocket(std::move(accepted), kCookie) {
    Watch();
  }

  std::vector<std::string> texts;
  int authorizations = 0;

 protected:
  bool ReadPortFile(int* port, std::string* cookie) override {
    *port = 5000;
    *cookie = kCookie;
    return true;
  }

 private:
  void Watch() {
    set_host_description(kOwnDescription);
    SignalMessage.Connect(this, &End::OnText);
    SignalAuthorized.Connect(this, &End::OnAuthorized);
  }
  void OnText(MessageSocket*, const std::string& text) { texts.push_back(text); }
  void OnAuthorized(MessageSocket*) { ++authorizations; }
};

// What must have come of the frames, by the wire format's rules.
struct Outcome {
  bool authorized = false;
  std::vector<std::string> texts;
  std::string host_description = kOwnDescription;
  FrameList sent;
};

Outcome Expect(const FrameList& received, bool client) {
  Outcome outcome;
  if (client) outcome.sent.emplace_back(MSG_COOKIE, kCookie);
  for (const auto& [type, data] : received) {
    const bool knows_cookie = data == kCookie;
    if (type == MSG_COOKIE) {
      outcome.sent.emplace_back(MSG_COOKIE_RESPONSE, knows_cookie ? kCookie : "");
    } else if (type == MSG_COOKIE_RESPONSE && knows_cookie && !outcome.authorized) {
      outcome.sent.emplace_back(MSG_HOST_DESCRIPTION, kOwnDescription);
    } else if (type == MSG_DATA && outcome.authorized) {
      outcome.texts.push_back(data);
    } else if (type == MSG_HOST_DESCRIPTION && outcome.authorized) {
      outcome.host_description = data;
    }
    const bool is_proof = type == MSG_COOKIE || type == MSG_COOKIE_RESPONSE;
    outcome.authorized = outcome.authorized || (is_proof && knows_cookie);
  }
  return outcome;
}

FrameList Frames(std::string_view bytes) {
  FrameList frames;
  ByteBuffer buffer(bytes);
  ReadFrames(buffer, frames);
  return frames;
}

void Exchange(End& end, AsyncSocket& socket, Wire& wire) {
  while (!wire.incoming.empty()) socket.SignalReadEvent(&socket);
  // A wire that takes nothing 20 times in a row is one that was given nothing.
  for (size_t before = 0, idle = 0; idle < 20; before = wire.sent.size()) {
    socket.SignalWriteEvent(&socket);
    idle = wire.sent.size() == before ? idle + 1 : 0;
  }
  FUZZ_CHECK(end.state() == MessageSocket::STATE_CONNECTED);
}

void Check(const End& end, const Wire& wire, const Outcome& expected) {
  FUZZ_CHECK(end.authorized() == expected.authorized);
  FUZZ_CHECK(end.authorizations == (expected.authorized ? 1 : 0));
  FUZZ_CHECK(end.texts == expected.texts);
  FUZZ_CHECK(end.host_description() == expected.host_description);
  FUZZ_CHECK(Frames(wire.sent) == expected.sent);
}

}  // namespace

void TestInput(std::string_view input) {
  const FrameList received = Frames(input);
  {
    Wire wire{input, {}, Choices(input)};
    auto socket = std::make_unique<WireSocket>(wire);
    AsyncSocket& borrowed = *socket;
    End client;
    FUZZ_CHECK(static_cast<MessageSocket&>(client).Connect(std::move(socket), nullptr));
    borrowed.SignalConnectEvent(&borrowed);
    Exchange(client, borrowed, wire);
    Check(client, wire, Expect(received, true));
  }
  Wire wire{input, {}, Choices(input)};
  auto socket = std::make_unique<WireSocket>(wire);
  AsyncSocket& borrowed = *socket;
  End server(std::move(socket));
  Exchange(server, borrowed, wire);
  Check(server, wire, Expect(received, false));
}

}  // namespace mpbp::fuzz
