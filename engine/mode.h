// How the stand-in engine is to misbehave, and when it ends by itself.
#ifndef MPBP_ENGINE_MODE_H_
#define MPBP_ENGINE_MODE_H_

#include <optional>
#include <string_view>

namespace mpbp::engine {

enum class Mode {
  kNormal,
  kMuteHandshake,     // accepts connections and never answers a cookie
  kBadCookie,         // answers every cookie as if it were wrong
  kNoQw,              // authorizes and never announces itself
  kDropAfterAuth,     // closes the link as soon as it is authorized
  kDropAfterConnect,  // closes every connection at once
  kExitAtOnce,        // ends before it listens
  kNoPortFile,        // listens and tells nobody where
};

inline constexpr char kModeVariable[] = "MURMEL_ENGINE_MODE";
inline constexpr char kIdleVariable[] = "MURMEL_ENGINE_IDLE_SECONDS";
inline constexpr int kDefaultIdleSeconds = 60;

// By its name in the variable; the empty name is the normal mode. Nothing for an unknown name.
std::optional<Mode> ModeFromName(std::string_view name);

// A whole number from 1 to 86400; the empty text gives the default. Nothing for anything else.
std::optional<int> IdleSecondsFromText(std::string_view text);

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_MODE_H_
