#include "ppapi/var.h"

#include <cmath>
#include <limits>
#include <utility>

#include "base/utf8.h"
#include "ppapi/browser.h"

namespace mpbp {
namespace {

bool IsCounted(const PP_Var& var) { return var.type >= PP_VARTYPE_STRING; }

void AddRef(const PP_Var& var) {
  if (IsCounted(var) && Browser().var.add_ref) Browser().var.add_ref(var);
}

void Release(const PP_Var& var) {
  if (IsCounted(var) && Browser().var.release) Browser().var.release(var);
}

PP_Var MakeString(std::string_view text) {
  const BrowserInterfaces& browser = Browser();
  const auto length = static_cast<uint32_t>(text.size());
  if (browser.var.from_utf8) return browser.var.from_utf8(text.data(), length);
  if (browser.var.from_utf8_for_module) {
    return browser.var.from_utf8_for_module(browser.module, text.data(), length);
  }
  return Var().get();
}

}  // namespace

Var::Var(std::string_view text) : Var() {
  if (text.size() > std::numeric_limits<uint32_t>::max()) return;
  // The browser turns text that is not UTF-8 into null, and some do that to noncharacters.
  var_ = IsValidUtf8(text) ? MakeString(text) : MakeString(ReplaceInvalidUtf8(text));
  if (is_null()) var_ = MakeString(ReplaceInvalidUtf8AndNoncharacters(text));
}

Var Var::Adopt(const PP_Var& var) {
  Var result;
  result.var_ = var;
  return result;
}

Var Var::Share(const PP_Var& var) {
  AddRef(var);
  return Adopt(var);
}

Var::Var(const Var& other) : var_(other.var_) { AddRef(var_); }

Var::Var(Var&& other) noexcept : Var() { std::swap(var_, other.var_); }

Var& Var::operator=(Var other) noexcept {
  std::swap(var_, other.var_);
  return *this;
}

Var::~Var() { Release(var_); }

PP_Var Var::Detach() { return std::exchange(var_, PP_Var{PP_VARTYPE_UNDEFINED, 0, {.as_id = 0}}); }

std::optional<std::string_view> Var::AsStringView() const {
  if (!is_string() || !Browser().var.to_utf8) return std::nullopt;
  uint32_t length = 0;
  const char* const data = Browser().var.to_utf8(var_, &length);
  return data ? std::string_view(data, length) : std::string_view();
}

std::optional<std::string> Var::AsString() const {
  const std::optional<std::string_view> text = AsStringView();
  if (!text) return std::nullopt;
  return std::string(*text);
}

std::optional<int32_t> Var::AsInt() const {
  if (var_.type == PP_VARTYPE_INT32) return var_.value.as_int;
  if (var_.type != PP_VARTYPE_DOUBLE) return std::nullopt;
  const double value = var_.value.as_double;
  const bool fits = value >= std::numeric_limits<int32_t>::min() &&
                    value <= std::numeric_limits<int32_t>::max();  // false for NaN
  if (!fits || value != std::trunc(value)) return std::nullopt;
  return static_cast<int32_t>(value);
}

Var Var::GetProperty(const char* name) const {
  const PPB_Var_Deprecated_0_3* const scripting = Browser().var_deprecated;
  if (!scripting || !is_object()) return {};
  PP_Var exception = Var().get();
  Var result = Adopt(scripting->GetProperty(var_, Var(name).get(), &exception));
  const Var thrown = Adopt(exception);
  return thrown.is_undefined() ? result : Var();
}

std::optional<std::string> Var::CallAsFunction(const Var& argument) const {
  const PPB_Var_Deprecated_0_3* const scripting = Browser().var_deprecated;
  if (!scripting || !is_object()) return std::nullopt;
  const Var function = *this;  // the page may drop the last reference while it runs
  PP_Var arguments[] = {argument.get()};
  PP_Var exception = Var().get();
  // An undefined method name calls the object itself.
  const Var result = Adopt(scripting->Call(function.get(), Var().get(), 1, arguments, &exception));
  const Var thrown = Adopt(exception);
  if (thrown.is_undefined()) return std::nullopt;
  return thrown.AsString().value_or("");
}

}  // namespace mpbp
