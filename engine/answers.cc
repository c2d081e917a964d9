// What the plug-in sends by itself: its answers, and a remark.
#include <map>

#include "engine/client.h"
#include "engine/json.h"
#include "jsontext.h"

namespace mpbp::engine {
namespace {

std::optional<uint32_t> IdAt(const Json::Value& message, Json::ArrayIndex index) {
  const Json::Value& element = ElementAt(message, index);
  if (!element.isUInt()) return {};
  return element.asUInt();
}

}  // namespace

Client::Action Client::FindAnswer(const std::string& word) {
  static const std::map<std::string, Action> answers = {
      {"httpresponse", &Client::HttpAnswered},
      {"proxyforurl", &Client::ProxyAnswered},
      {"mpbp-request-permission-result", &Client::PermissionAnswered},
      {"mpbp-terminate-remoting-event", &Client::RemotingEnded},
      {"comment", &Client::Commented},
  };
  const auto found = answers.find(word);
  return found == answers.end() ? nullptr : found->second;
}

bool Client::HttpAnswered(const Json::Value& message, const std::string&) {
  const std::optional<uint32_t> id = IdAt(message, 1);
  if (!id || http_asked_.erase(*id) == 0) return false;
  Send(MakeMessage("http-result", message));
  return true;
}

bool Client::ProxyAnswered(const Json::Value& message, const std::string&) {
  const std::optional<uint32_t> id = IdAt(message, 1);
  const auto asked = id ? proxy_asked_.find(*id) : proxy_asked_.end();
  if (asked == proxy_asked_.end()) return false;
  const std::string url = asked->second;
  proxy_asked_.erase(asked);
  Send(MakeMessage("proxy-result", url, ElementAt(message, 2)));
  return true;
}

bool Client::PermissionAnswered(const Json::Value& message, const std::string&) {
  const std::optional<uint32_t> tag = IdAt(message, 3);
  if (!tag || StringAt(message, 2) != std::to_string(*tag)) return false;
  const auto asked = permission_asked_.find(*tag);
  if (asked == permission_asked_.end()) return false;
  const int kind = asked->second;
  permission_asked_.erase(asked);
  Send(MakeMessage("permission-result", kind, ElementAt(message, 4)));
  return true;
}

bool Client::RemotingEnded(const Json::Value& message, const std::string&) {
  const std::optional<std::string> id = StringAt(message, 2);
  if (!id || remoting_.erase(*id) == 0) return false;
  Send(MakeMessage("remoting-ended", *id));
  return true;
}

// The plug-in says that the page was slow. An answer would go to the page, which might be slow
// again and so on.
bool Client::Commented(const Json::Value&, const std::string&) { return true; }

}  // namespace mpbp::engine
