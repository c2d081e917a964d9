#include "engine/json.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "jsonescapes.h"
#include "jsontext.h"

namespace mpbp::engine {
namespace {

// What the plug-in acts on when the engine says it: it looks for the first three anywhere in a
// text, in quotes, and for the others at element 0.
constexpr std::string_view kPluginWords[] = {"qw",
                                             "httprequest",
                                             "getproxyforurl",
                                             "mpbp-request-permission",
                                             "mpbp-start-remoting",
                                             "mpbp-stop-remoting"};
constexpr size_t kFirstQuote = 1;  // of element 0, after the bracket

// Whether one of the words stands here and ends with its string or with a quote within it.
bool BeginsWithPluginWord(std::string_view text) {
  return std::any_of(std::begin(kPluginWords), std::end(kPluginWords), [&](std::string_view word) {
    if (!text.starts_with(word) || text.size() == word.size()) return false;
    const char next = text[word.size()];
    return next == '"' || next == '\\';
  });
}

std::string AsEscape(char letter) {
  char escape[] = "\\u0000";
  snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(letter));
  return escape;
}

}  // namespace

std::optional<Json::Value> ParseMessage(const std::string& text) {
  std::optional<Json::Value> value = ParseJson(text);
  if (!value || !AsString(ElementAt(*value, 0))) return {};
  return value;
}

std::string WriteMessage(const Json::Value& message) {
  const std::string text = WriteJson(message);
  std::string disarmed;
  disarmed.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    disarmed += text[i];
    if (text[i] != '"' || i <= kFirstQuote) continue;
    if (BeginsWithPluginWord(std::string_view(text).substr(i + 1))) disarmed += AsEscape(text[++i]);
  }
  return disarmed;
}

bool HoldsPluginWord(const std::string& text) {
  // A quoted word without escapes in it is still there when those around it are resolved.
  const std::string plain = WithoutJsonEscapes(text);
  return std::any_of(std::begin(kPluginWords), std::end(kPluginWords), [&](std::string_view word) {
    return plain.find('"' + std::string(word) + '"') != std::string::npos;
  });
}

std::string EchoOf(const std::string& text) {
  return HoldsPluginWord(text) ? WriteMessage(MakeMessage("echo-quoted", text)) : text;
}

std::optional<int> IntAt(const Json::Value& message, Json::ArrayIndex index, int min, int max) {
  const Json::Value& element = ElementAt(message, index);
  if (!element.isInt() || element.asInt() < min || element.asInt() > max) return {};
  return element.asInt();
}

std::optional<std::string> StringAt(const Json::Value& message, Json::ArrayIndex index) {
  return AsString(ElementAt(message, index));
}

}  // namespace mpbp::engine
