// The page's side of scripting: values. Main thread only.
#ifndef MPBP_HOST_VALUE_H_
#define MPBP_HOST_VALUE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/object_ref.h"

namespace mpbp::host {

struct Undefined {
  bool operator==(const Undefined&) const = default;
};
struct Null {
  bool operator==(const Null&) const = default;
};

using Value = std::variant<Undefined, Null, bool, int32_t, double, std::string, ObjectRef>;
using Values = std::vector<Value>;

// The text of a thrown exception; nothing when none was thrown.
using Thrown = std::optional<std::string>;

struct Result {
  Value value;
  Thrown exception;
};

// For messages: strings in quotes, objects as "object".
std::string ToText(const Value& value);
// The text of a string value; nothing for any other.
std::optional<std::string> AsString(const Value& value);

}  // namespace mpbp::host

#endif  // MPBP_HOST_VALUE_H_
