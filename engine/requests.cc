#include "engine/requests.h"

#include <strings.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <map>

#include "base/timeutils.h"
#include "engine/client.h"
#include "engine/json.h"

namespace mpbp::engine {
namespace {

constexpr int kMaxPort = 65'535;

bool IsFull(size_t pending) { return pending >= static_cast<size_t>(kMaxPending); }

std::string Filling(int bytes) { return std::string(static_cast<size_t>(bytes), 'x'); }

// ":" and the number.
bool ParsePort(std::string_view text, int* port) {
  if (!text.starts_with(':')) return false;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 1, end, *port);
  return error == std::errc() && stop == end && *port >= 1 && *port <= kMaxPort;
}

}  // namespace

std::optional<UrlParts> ParseUrl(std::string_view url) {
  UrlParts parts;
  const size_t scheme_end = url.find("://");
  if (scheme_end == std::string_view::npos) return {};
  parts.proto = url.substr(0, scheme_end);
  if (strcasecmp(parts.proto.c_str(), "http") == 0) {
    parts.port = 80;
  } else if (strcasecmp(parts.proto.c_str(), "https") == 0) {
    parts.port = 443;
  } else {
    return {};
  }
  url.remove_prefix(scheme_end + 3);
  const size_t path_start = std::min(url.find_first_of("/?#"), url.size());
  std::string_view authority = url.substr(0, path_start);
  const std::string_view path = url.substr(path_start, url.find('#') - path_start);
  parts.path = path.starts_with('/') ? path : "/" + std::string(path);

  // A colon inside brackets belongs to an IPv6 address.
  size_t host_end = authority.find(':');
  if (authority.starts_with('[')) {
    host_end = authority.find(']');
    if (host_end == std::string_view::npos) return {};
    ++host_end;
  }
  host_end = std::min(host_end, authority.size());
  parts.host = authority.substr(0, host_end);
  if (parts.host.empty() || parts.host.find('@') != std::string::npos) return {};
  authority.remove_prefix(host_end);
  if (!authority.empty() && !ParsePort(authority, &parts.port)) return {};
  return parts;
}

Client::Action Client::FindRequest(const std::string& word) {
  static const std::map<std::string, Action> requests = {
      {"echo", &Client::Echo},
      {"crash", &Client::Crash},
      {"drop", &Client::Drop},
      {"silent", &Client::Silent},
      {"slow", &Client::Slow},
      {"many", &Client::Many},
      {"large", &Client::Large},
      {"quit", &Client::Quit},
      {"ask-http", &Client::AskHttp},
      {"ask-proxy", &Client::AskProxy},
      {"ask-permission", &Client::AskPermission},
      {"remoting-begin", &Client::BeginRemoting},
      {"remoting-stop", &Client::StopRemoting},
  };
  const auto found = requests.find(word);
  return found == requests.end() ? nullptr : found->second;
}

bool Client::Echo(const Json::Value&, const std::string& text) {
  Send(EchoOf(text));
  return true;
}

bool Client::Crash(const Json::Value&, const std::string&) {
  // Without a core file, and without a core for a program that collects them. What fails here costs
  // a file.
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  prctl(PR_SET_DUMPABLE, 0);
  abort();
}

bool Client::Drop(const Json::Value&, const std::string&) {
  socket_->Close();
  SignalGone(this);
  return true;
}

bool Client::Silent(const Json::Value& message, const std::string&) {
  const std::optional<int> ms = IntAt(message, 1, 0, kMaxDelayMs);
  if (!ms) return false;
  silent_since_ = Time();
  silent_ms_ = *ms;
  return true;
}

bool Client::Slow(const Json::Value& message, const std::string& text) {
  const std::optional<int> ms = IntAt(message, 1, 0, kMaxDelayMs);
  if (!ms || slow_count_ >= kMaxPending) return false;
  PostSlow(*ms, text);
  return true;
}

bool Client::Many(const Json::Value& message, const std::string&) {
  const std::optional<int> count = IntAt(message, 1, 0, kMaxCount);
  const std::optional<int> size = IntAt(message, 2, 0, kMaxBytes);
  if (!count || !size || int64_t{*count} * *size > kMaxBytes) return false;
  const std::string filling = Filling(*size);
  for (int i = 0; i < *count; ++i) Send(MakeMessage("many", i, filling));
  return true;
}

bool Client::Large(const Json::Value& message, const std::string&) {
  const std::optional<int> bytes = IntAt(message, 1, 0, kMaxBytes);
  if (!bytes) return false;
  Send(MakeMessage("large", Filling(*bytes)));
  return true;
}

bool Client::Quit(const Json::Value&, const std::string&) {
  SignalQuit();
  return true;
}

bool Client::AskHttp(const Json::Value& message, const std::string&) {
  const std::optional<std::string> verb = StringAt(message, 1);
  const std::optional<std::string> url = StringAt(message, 2);
  const std::optional<UrlParts> parts = url ? ParseUrl(*url) : std::nullopt;
  if (!verb || !parts || IsFull(http_asked_.size())) return false;
  Json::Value target(Json::objectValue);
  target["verb"] = *verb;
  target["proto"] = parts->proto;
  target["host"] = parts->host;
  target["port"] = parts->port;
  target["path"] = parts->path;
  const uint32_t id = next_id_++;
  http_asked_.insert(id);
  Send(MakeMessage("httprequest", id, target, StringAt(message, 3).value_or(""),
                   StringAt(message, 4).value_or("")));
  return true;
}

bool Client::AskProxy(const Json::Value& message, const std::string&) {
  const std::optional<std::string> url = StringAt(message, 1);
  if (!url || IsFull(proxy_asked_.size())) return false;
  const uint32_t id = next_id_++;
  proxy_asked_[id] = *url;
  Send(MakeMessage("getproxyforurl", id, *url));
  return true;
}

bool Client::AskPermission(const Json::Value& message, const std::string&) {
  using Limits = std::numeric_limits<int>;
  const std::optional<int> kind = IntAt(message, 1, Limits::min(), Limits::max());
  if (!kind || IsFull(permission_asked_.size())) return false;
  const uint32_t tag = next_id_++;
  permission_asked_[tag] = *kind;
  Send(MakeMessage("mpbp-request-permission", std::to_string(tag), *kind, tag));
  return true;
}

bool Client::BeginRemoting(const Json::Value& message, const std::string&) {
  const std::optional<std::string> id = StringAt(message, 1);
  if (!id || IsFull(remoting_.size())) return false;
  remoting_.insert(*id);
  Send(MakeMessage("mpbp-start-remoting", *id));
  return true;
}

bool Client::StopRemoting(const Json::Value& message, const std::string&) {
  const std::optional<std::string> id = StringAt(message, 1);
  if (!id) return false;
  remoting_.erase(*id);
  Send(MakeMessage("mpbp-stop-remoting", *id));
  return true;
}

}  // namespace mpbp::engine
