// JSON as the stand-in engine reads and writes it.
#ifndef MPBP_ENGINE_JSON_H_
#define MPBP_ENGINE_JSON_H_

#include <json/value.h>

#include <optional>
#include <string>

namespace mpbp::engine {

// A message: an array whose element 0 is a string. Nothing when the text is anything else.
std::optional<Json::Value> ParseMessage(const std::string& text);

// The compact text of a message whose element 0 is the engine's own. A word that the plug-in acts
// on (see HoldsPluginWord) stands as it is at element 0 only; anywhere else, also in a text within
// a string, its first letter is written as an escape, which changes nothing for a JSON reader.
std::string WriteMessage(const Json::Value& message);

// Whether the plug-in might act on the text of a stranger if it came from the engine: whether one
// of the plug-in's words stands in it anywhere, in quotes, plain or written with JSON's escapes.
// Looks at the text, not at its JSON: what one reader refuses another may accept.
bool HoldsPluginWord(const std::string& text);

// What may be sent in place of a stranger's text: the text itself, or, when it holds a word of the
// plug-in's, ["echo-quoted","<the text>"].
std::string EchoOf(const std::string& text);

// Element `index` as a number within the bounds; nothing when it is missing or anything else.
std::optional<int> IntAt(const Json::Value& message, Json::ArrayIndex index, int min, int max);
// Element `index` as a string; nothing when it is missing or no string.
std::optional<std::string> StringAt(const Json::Value& message, Json::ArrayIndex index);

// [elements...]
template <typename... Elements>
Json::Value MakeMessage(Elements&&... elements) {
  Json::Value message(Json::arrayValue);
  (message.append(Json::Value(std::forward<Elements>(elements))), ...);
  return message;
}

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_JSON_H_
