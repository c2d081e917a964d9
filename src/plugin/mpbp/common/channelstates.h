// The states of a channel, what happens to it, and what that leads to: all of it in one table.
#ifndef MPBP_PLUGIN_MPBP_COMMON_CHANNELSTATES_H_
#define MPBP_PLUGIN_MPBP_COMMON_CHANNELSTATES_H_

#include <array>
#include <cstdint>

namespace mpbp {

// Texts for the page; besides them it gets "f-connect" texts and what the engine sends.
inline constexpr char kReadyText[] = "[\"f-ready\"]";
inline constexpr char kDeadText[] = "[\"f-dead\"]";
inline constexpr char kKilledText[] = "[\"f-killed\"]";

enum class ChannelState : int32_t {
  NOT_CONNECTED = 0,
  CONNECTED = 1,   // waiting for authorization
  AUTHORIZED = 2,  // nothing heard from the engine yet
  READY = 3,       // the engine has sent a "qw" text
};

enum class ChannelEvent : uint8_t {
  SOCKET_CONNECTED,
  SOCKET_AUTHORIZED,  // the handshake has succeeded
  ENGINE_SPOKE,       // a text with "qw" came
  SOCKET_CLOSED,      // by the peer, or the connection failed
  STOPPED,            // by us
};

// The steps of "f-connect" texts.
enum class ConnectStep : int8_t {
  NO_STEP = -1,
  PORT_FILE = 0,
  CONNECT = 1,
  ENGINE_START = 2,
  LINK_UP = 3,
  LINK_DOWN = 4,
};

// What follows by itself.
enum class ChannelSequel : uint8_t {
  NOTHING,
  CHECK,    // the online check, after five seconds
  RECOVER,  // the port file is stale: restart the engine after a second, the first time; after that
            // connect again after a second
  GIVE_UP,  // nothing; the online check of the connection looks again
  RESTART,  // the engine, after a second, whether that was tried before or not
};

// As logs and texts have it.
constexpr int ToNumber(ChannelState state) { return static_cast<int>(state); }
constexpr int ToNumber(ConnectStep step) { return static_cast<int>(step); }

struct ChannelTransition {
  ChannelState state;
  ChannelEvent event;
  ChannelState next;
  ConnectStep step;  // the page is told this first
  const char* text;  // and this then; null: nothing
  ChannelSequel sequel;
};

// Every state with every event, in this order.
inline constexpr std::array kChannelTransitions = [] {
  using enum ChannelState;
  using enum ChannelEvent;
  using enum ConnectStep;
  using enum ChannelSequel;
  using T = ChannelTransition;
  return std::array{
      T{NOT_CONNECTED, SOCKET_CONNECTED, CONNECTED, LINK_UP, nullptr, CHECK},
      T{NOT_CONNECTED, SOCKET_AUTHORIZED, AUTHORIZED, NO_STEP, kReadyText, NOTHING},
      T{NOT_CONNECTED, ENGINE_SPOKE, NOT_CONNECTED, NO_STEP, nullptr, NOTHING},
      T{NOT_CONNECTED, SOCKET_CLOSED, NOT_CONNECTED, LINK_DOWN, nullptr, RECOVER},
      T{NOT_CONNECTED, STOPPED, NOT_CONNECTED, NO_STEP, nullptr, NOTHING},

      T{CONNECTED, SOCKET_CONNECTED, CONNECTED, LINK_UP, nullptr, CHECK},
      T{CONNECTED, SOCKET_AUTHORIZED, AUTHORIZED, NO_STEP, kReadyText, NOTHING},
      T{CONNECTED, ENGINE_SPOKE, CONNECTED, NO_STEP, nullptr, NOTHING},
      T{CONNECTED, SOCKET_CLOSED, NOT_CONNECTED, LINK_DOWN, nullptr, GIVE_UP},
      T{CONNECTED, STOPPED, NOT_CONNECTED, NO_STEP, nullptr, NOTHING},

      T{AUTHORIZED, SOCKET_CONNECTED, CONNECTED, LINK_UP, nullptr, CHECK},
      T{AUTHORIZED, SOCKET_AUTHORIZED, AUTHORIZED, NO_STEP, kReadyText, NOTHING},
      T{AUTHORIZED, ENGINE_SPOKE, READY, NO_STEP, nullptr, NOTHING},
      T{AUTHORIZED, SOCKET_CLOSED, NOT_CONNECTED, LINK_DOWN, kDeadText, GIVE_UP},
      T{AUTHORIZED, STOPPED, NOT_CONNECTED, NO_STEP, nullptr, NOTHING},

      T{READY, SOCKET_CONNECTED, CONNECTED, LINK_UP, nullptr, CHECK},
      T{READY, SOCKET_AUTHORIZED, AUTHORIZED, NO_STEP, kReadyText, NOTHING},
      T{READY, ENGINE_SPOKE, READY, NO_STEP, nullptr, NOTHING},
      T{READY, SOCKET_CLOSED, NOT_CONNECTED, LINK_DOWN, kDeadText, RESTART},
      T{READY, STOPPED, NOT_CONNECTED, NO_STEP, nullptr, NOTHING},
  };
}();

constexpr const ChannelTransition& FindTransition(ChannelState state, ChannelEvent event) {
  constexpr size_t kEvents = static_cast<size_t>(ChannelEvent::STOPPED) + 1;
  return kChannelTransitions[static_cast<size_t>(state) * kEvents + static_cast<size_t>(event)];
}

static_assert([] {
  for (const ChannelTransition& t : kChannelTransitions) {
    if (&FindTransition(t.state, t.event) != &t) return false;
  }
  return true;
}());

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_CHANNELSTATES_H_
