// JSON as the stand-in engine reads and writes it.
#ifndef MPBP_ENGINE_JSON_H_
#define MPBP_ENGINE_JSON_H_

#include <json/value.h>

#include <optional>
#include <string>

namespace mpbp::engine {

// A message: an array whose element 0 is a string. Nothing when the text is anything else.
std::optional<Json::Value> ParseMessage(const std::string& text);

// The compact text of a message. The plug-in takes any text with "httprequest" or "getproxyforurl"
// in it, quotes included, for a request; where such a string stands anywhere but at element 0, its
// first letter is written as an escape, which changes nothing for a JSON reader.
std::string WriteMessage(const Json::Value& message);

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
