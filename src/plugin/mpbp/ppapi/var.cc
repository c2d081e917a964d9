#include "plugin/mpbp/ppapi/var.h"

#include <cmath>
#include <limits>
#include <utility>

#include "base/utf8.h"
#include "plugin/mpbp/ppapi/browser.h"

namespace mpbp {
namespace {

bool IsCounted(const PP_Var& var) { return var.type >= PP_VARTYPE_STRING; }

void AddRef(const PP_Var& var) {
  if (!IsCounted(var)) return;
  const BrowserInterfaces& browser = Browser();
  if (browser.var) {
    browser.var->AddRef(var);
  } else if (browser.var_1_0) {
    browser.var_1_0->AddRef(var);
  }
}

void Release(const PP_Var& var) {
  if (!IsCounted(var)) return;
  const BrowserInterfaces& browser = Browser();
  if (browser.var) {
    browser.var->Release(var);
  } else if (browser.var_1_0) {
    browser.var_1_0->Release(var);
  }
}

PP_Var MakeString(std::string_view text) {
  const BrowserInterfaces& browser = Browser();
  const auto length = static_cast<uint32_t>(text.size());
  if (browser.var) return browser.var->VarFromUtf8(text.data(), length);
  if (browser.var_1_0) {
    return browser.var_1_0->VarFromUtf8(browser.module, text.data(), length);
  }
  return Var().get();
}

}  // namespace

Var::Var(std::string_view text) : Var() {
  if (text.size() > std::numeric_limits<uint32_t>::max()) return;
  // The browser would make a null of text that is no UTF-8.
  var_ = IsValidUtf8(text) ? MakeString(text) : MakeString(ReplaceInvalidUtf8(text));
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

std::optional<std::string> Var::AsString() const {
  if (!is_string()) return std::nullopt;
  const BrowserInterfaces& browser = Browser();
  uint32_t length = 0;
  const char* data = nullptr;
  if (browser.var) {
    data = browser.var->VarToUtf8(var_, &length);
  } else if (browser.var_1_0) {
    data = browser.var_1_0->VarToUtf8(var_, &length);
  }
  return data ? std::string(data, length) : std::string();
}

std::optional<int32_t> Var::AsInt() const {
  if (var_.type == PP_VARTYPE_INT32) return var_.value.as_int;
  if (var_.type != PP_VARTYPE_DOUBLE) return std::nullopt;
  const double value = var_.value.as_double;
  const bool fits = value >= std::numeric_limits<int32_t>::min() &&
                    value <= std::numeric_limits<int32_t>::max();  // false for no number at all
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

void Var::CallAsFunction(const Var& argument) const {
  const PPB_Var_Deprecated_0_3* const scripting = Browser().var_deprecated;
  if (!scripting || !is_object()) return;
  const Var function = *this;  // the page may drop the last reference while it runs
  PP_Var arguments[] = {argument.get()};
  PP_Var exception = Var().get();
  // An undefined method name calls the object itself.
  const Var result = Adopt(scripting->Call(function.get(), Var().get(), 1, arguments, &exception));
  const Var thrown = Adopt(exception);
}

}  // namespace mpbp
