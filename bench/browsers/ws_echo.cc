// A WebSocket server on 127.0.0.1 that sends every text back. Prints its port, and ends with its
// standard input.
#include <libwebsockets.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <string>
#include <thread>

namespace {

constexpr size_t kBufferSize = 65536;

struct Session {
  std::string partial;
  std::deque<std::string> waiting;
};

// What the library keeps for each connection; it knows no constructors.
struct Slot {
  Session* session;
};

int OnEvent(lws* connection, lws_callback_reasons reason, void* user, void* in, size_t length) {
  auto* const slot = static_cast<Slot*>(user);
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      slot->session = new Session;
      break;
    case LWS_CALLBACK_CLOSED:
      delete slot->session;
      break;
    case LWS_CALLBACK_RECEIVE:
      slot->session->partial.append(static_cast<char*>(in), length);
      if (lws_is_final_fragment(connection) && lws_remaining_packet_payload(connection) == 0) {
        slot->session->waiting.push_back(std::string(LWS_PRE, '\0') + slot->session->partial);
        slot->session->partial.clear();
        lws_callback_on_writable(connection);
      }
      break;
    case LWS_CALLBACK_SERVER_WRITEABLE: {
      std::deque<std::string>& waiting = slot->session->waiting;
      if (waiting.empty()) break;
      std::string& text = waiting.front();
      lws_write(connection, reinterpret_cast<unsigned char*>(text.data()) + LWS_PRE,
                text.size() - LWS_PRE, LWS_WRITE_TEXT);
      waiting.pop_front();
      if (!waiting.empty()) lws_callback_on_writable(connection);
      break;
    }
    default:
      break;
  }
  return 0;
}

}  // namespace

int main() {
  lws_set_log_level(LLL_ERR, nullptr);
  const lws_protocols protocols[] = {
      {"echo", OnEvent, sizeof(Slot), kBufferSize, 0, nullptr, 0},
      {nullptr, nullptr, 0, 0, 0, nullptr, 0},
  };
  lws_context_creation_info info = {};
  info.port = 0;
  info.iface = "127.0.0.1";
  info.protocols = protocols;
  lws_context* const context = lws_create_context(&info);
  if (!context) return 1;
  lws_vhost* const host = lws_get_vhost_by_name(context, "default");
  printf("%d\n", lws_get_vhost_listen_port(host));
  fflush(stdout);
  std::thread([context] {
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) continue;
    lws_cancel_service(context);
    _exit(0);
  }).detach();
  while (lws_service(context, 0) >= 0) continue;
  return 0;
}
