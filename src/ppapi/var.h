// One reference to a value of the page's script.
#ifndef MPBP_PPAPI_VAR_H_
#define MPBP_PPAPI_VAR_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "abi/browser_abi.h"

namespace mpbp {

class Var {
 public:
  Var() : var_{PP_VARTYPE_UNDEFINED, 0, {.as_id = 0}} {}
  explicit Var(bool value) : var_{PP_VARTYPE_BOOL, 0, {.as_bool = value ? PP_TRUE : PP_FALSE}} {}
  explicit Var(int32_t value) : var_{PP_VARTYPE_INT32, 0, {.as_int = value}} {}
  // A string. Bytes that are not valid UTF-8 become U+FFFD, and so do noncharacters where the
  // browser refuses them. Undefined when the browser has no strings.
  explicit Var(std::string_view text);
  explicit Var(const char* text) : Var(std::string_view(text)) {}
  // Takes over a reference that the browser returned.
  static Var Adopt(const PP_Var& var);
  // Adds a reference to a var that stays the caller's.
  static Var Share(const PP_Var& var);

  Var(const Var& other);
  Var(Var&& other) noexcept;
  Var& operator=(Var other) noexcept;
  ~Var();

  bool is_undefined() const { return var_.type == PP_VARTYPE_UNDEFINED; }
  bool is_null() const { return var_.type == PP_VARTYPE_NULL; }
  bool is_string() const { return var_.type == PP_VARTYPE_STRING; }
  bool is_object() const { return var_.type == PP_VARTYPE_OBJECT; }

  // Nothing when it is not a string. The view is borrowed, for as long as this lives.
  std::optional<std::string_view> AsStringView() const;
  std::optional<std::string> AsString() const;
  // Nothing when it is not a number, or does not fit.
  std::optional<int32_t> AsInt() const;

  // A property of an object; undefined when there is none, it throws, or this is not an object.
  Var GetProperty(const char* name) const;
  // Calls a function without `this`, and gives what it threw: the text, or an empty one when the
  // browser gave none; nothing when it threw nothing. What it returns is dropped. The page may do
  // anything meanwhile.
  [[nodiscard]] std::optional<std::string> CallAsFunction(const Var& argument) const;

  // Borrowed, for as long as this lives.
  const PP_Var& get() const { return var_; }
  // Hands the reference over to the caller.
  [[nodiscard]] PP_Var Detach();

 private:
  PP_Var var_;
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_VAR_H_
