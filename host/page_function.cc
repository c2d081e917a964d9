#include "host/page_function.h"

#include <exception>
#include <utility>

namespace mpbp::host {

PageFunction::PageFunction(Function function) : function_(std::move(function)) {}

Value PageFunction::Call(const Value& method, const Values& arguments, Thrown& thrown) {
  if (!std::holds_alternative<Undefined>(method)) {
    return PlainObject::Call(method, arguments, thrown);
  }
  try {
    Result result = function_(arguments);
    thrown = std::move(result.exception);
    return thrown ? Value() : std::move(result.value);
  } catch (const std::exception& error) {
    thrown = error.what();
  } catch (...) {
    thrown = "unknown exception";
  }
  return Undefined{};
}

Value MakeFunction(Function function) {
  return ObjectRef(std::make_shared<PageFunction>(std::move(function)));
}

}  // namespace mpbp::host
