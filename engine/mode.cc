#include "engine/mode.h"

#include <charconv>

namespace mpbp::engine {
namespace {

constexpr int kMaxIdleSeconds = 86'400;

constexpr struct {
  std::string_view name;
  Mode mode;
} kModes[] = {
    {"", Mode::kNormal},
    {"normal", Mode::kNormal},
    {"mute-handshake", Mode::kMuteHandshake},
    {"bad-cookie", Mode::kBadCookie},
    {"no-qw", Mode::kNoQw},
    {"drop-after-auth", Mode::kDropAfterAuth},
    {"drop-after-connect", Mode::kDropAfterConnect},
    {"exit-at-once", Mode::kExitAtOnce},
    {"no-port-file", Mode::kNoPortFile},
};

}  // namespace

std::optional<Mode> ModeFromName(std::string_view name) {
  for (const auto& entry : kModes) {
    if (entry.name == name) return entry.mode;
  }
  return std::nullopt;
}

std::optional<int> IdleSecondsFromText(std::string_view text) {
  if (text.empty()) return kDefaultIdleSeconds;
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (seconds < 1 || seconds > kMaxIdleSeconds) return std::nullopt;
  return seconds;
}

}  // namespace mpbp::engine
