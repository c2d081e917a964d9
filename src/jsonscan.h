// What can be told of a JSON text without making values of it. Never wrong, only at times
// undecided: then ParseJson has to say.
#ifndef MPBP_JSONSCAN_H_
#define MPBP_JSONSCAN_H_

#include <initializer_list>
#include <string_view>

namespace mpbp {

// Whether the text may be an array whose first element is one of the names, which are plain ASCII.
// False when it is surely none, whatever comes after that element: ParseJson finds no such array in
// it. Looks at no more of the text than its first element.
[[nodiscard]] bool MayBeNamed(std::string_view text, std::initializer_list<std::string_view> names);

// Whether the text is a JSON array or object that ParseJson takes, for certain. False also for
// what is rare, such as numbers with exponents, comments and deep nesting. Allocates nothing.
[[nodiscard]] bool IsPlainJson(std::string_view text);

}  // namespace mpbp

#endif  // MPBP_JSONSCAN_H_
