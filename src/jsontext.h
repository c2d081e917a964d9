// JSON texts in and out, for text that may be anything.
#ifndef MPBP_JSONTEXT_H_
#define MPBP_JSONTEXT_H_

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace mpbp {

// Nothing when the text is not JSON, or is nested deeper than the library takes; *errors (may be
// null) then says why. Comments are skipped.
[[nodiscard]] std::optional<Json::Value> ParseJson(std::string_view text,
                                                   std::string* errors = nullptr);

// Compact: no blanks, no line break at the end, members in sorted key order. Bytes above 127 stand
// as they are, valid UTF-8 or not; control characters, NUL included, are escaped. Empty only when
// memory ran out.
[[nodiscard]] std::string WriteJson(const Json::Value& value);

// Element `index` of an array; a null value when there is none, or when it is not an array.
const Json::Value& ElementAt(const Json::Value& array, unsigned index);
// Member `name` of an object; a null value when there is none, or when it is not an object.
const Json::Value& MemberOf(const Json::Value& object, const char* name);

// Nothing when the value has another type.
[[nodiscard]] std::optional<std::string> AsString(const Json::Value& value);

}  // namespace mpbp

#endif  // MPBP_JSONTEXT_H_
