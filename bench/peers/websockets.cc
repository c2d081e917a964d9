// Binary WebSocket messages on libwebsockets, one for each frame.
#include <libwebsockets.h>

#include <cstdio>
#include <deque>
#include <string>

#include "bench/peers/connection.h"
#include "bench/peers/sockets.h"
#include "portfileutils.h"

namespace mpbp::bench {
namespace {

constexpr size_t kBufferSize = 65536;
constexpr char kProtocol[] = "bench";

class WebSocketConnection : public Connection {
 public:
  explicit WebSocketConnection(Events& events) : events_(events) {}
  ~WebSocketConnection() override {
    if (context_) lws_context_destroy(context_);
  }

  // The library writes from inside its own event only.
  void Send(const std::string& payload) override {
    waiting_.push_back(std::string(LWS_PRE, '\0').append(payload));
    lws_callback_on_writable(connection_);
  }
  void Stop() override { stopped_ = true; }

  bool Serve(const std::string& port_file) {
    if (!MakeContext(0)) return false;
    lws_vhost* const host = lws_get_vhost_by_name(context_, "default");
    if (!Announce(port_file, lws_get_vhost_listen_port(host))) return false;
    return Run();
  }

  bool Drive(const std::string& port_file) {
    int port = 0;
    std::string cookie;
    if (!ReadPortFile(port_file, &port, &cookie) || !MakeContext(CONTEXT_PORT_NO_LISTEN)) {
      return false;
    }
    lws_client_connect_info info = {};
    info.context = context_;
    info.address = info.host = info.origin = "127.0.0.1";
    info.port = port;
    info.path = "/";
    info.protocol = kProtocol;
    return lws_client_connect_via_info(&info) && Run();
  }

 private:
  bool MakeContext(int port) {
    lws_set_log_level(LLL_ERR, nullptr);
    lws_context_creation_info info = {};
    info.port = port;
    info.iface = port == 0 ? "127.0.0.1" : nullptr;
    info.protocols = kProtocols;
    info.pt_serv_buf_size = kBufferSize;
    info.user = this;
    context_ = lws_create_context(&info);
    return context_ != nullptr;
  }

  bool Run() {
    while (!stopped_) {
      if (lws_service(context_, 0) < 0) return false;
    }
    return true;
  }

  static int OnEvent(lws* connection, lws_callback_reasons reason, void*, void* in, size_t length) {
    auto* const self =
        static_cast<WebSocketConnection*>(lws_context_user(lws_get_context(connection)));
    switch (reason) {
      case LWS_CALLBACK_ESTABLISHED:
      case LWS_CALLBACK_CLIENT_ESTABLISHED:
        self->connection_ = connection;
        self->events_.OnReady(*self);
        break;
      case LWS_CALLBACK_RECEIVE:
      case LWS_CALLBACK_CLIENT_RECEIVE:
        self->OnReceive({static_cast<char*>(in), length});
        break;
      case LWS_CALLBACK_SERVER_WRITEABLE:
      case LWS_CALLBACK_CLIENT_WRITEABLE:
        self->OnWritable();
        break;
      case LWS_CALLBACK_CLOSED:
      case LWS_CALLBACK_CLIENT_CLOSED:
      case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
        self->stopped_ = true;
        break;
      default:
        break;
    }
    return 0;
  }

  void OnReceive(std::string_view bytes) {
    const bool whole =
        lws_is_final_fragment(connection_) && lws_remaining_packet_payload(connection_) == 0;
    if (whole && partial_.empty()) {
      events_.OnFrame(*this, bytes);
      return;
    }
    partial_.append(bytes);
    if (!whole) return;
    events_.OnFrame(*this, partial_);
    partial_.clear();
  }

  void OnWritable() {
    while (!waiting_.empty() && !lws_send_pipe_choked(connection_)) {
      std::string& message = waiting_.front();
      lws_write(connection_, reinterpret_cast<unsigned char*>(message.data()) + LWS_PRE,
                message.size() - LWS_PRE, LWS_WRITE_BINARY);
      waiting_.pop_front();
    }
    if (!waiting_.empty()) lws_callback_on_writable(connection_);
  }

  static constexpr lws_protocols kProtocols[] = {
      {kProtocol, &OnEvent, 0, kBufferSize, 0, nullptr, 0},
      {nullptr, nullptr, 0, 0, 0, nullptr, 0},
  };

  Events& events_;
  lws_context* context_ = nullptr;
  lws* connection_ = nullptr;  // the library's, until it is closed
  std::deque<std::string> waiting_;
  std::string partial_;
  bool stopped_ = false;
};

}  // namespace

bool ServeWebSockets(const std::string& port_file, Events& events) {
  return WebSocketConnection(events).Serve(port_file);
}

bool DriveWebSockets(const std::string& port_file, Events& events) {
  return WebSocketConnection(events).Drive(port_file);
}

}  // namespace mpbp::bench
