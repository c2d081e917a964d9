#ifndef MPBP_HOST_PAGE_FUNCTION_H_
#define MPBP_HOST_PAGE_FUNCTION_H_

#include <functional>

#include "host/plain_object.h"

namespace mpbp::host {

using Function = std::function<Result(const Values& arguments)>;

// A function of the page. A C++ exception that leaves it is thrown on as a script exception.
class PageFunction final : public PlainObject {
 public:
  explicit PageFunction(Function function);
  Value Call(const Value& method, const Values& arguments, Thrown& thrown) override;

 private:
  const Function function_;
};

Value MakeFunction(Function function);

}  // namespace mpbp::host

#endif  // MPBP_HOST_PAGE_FUNCTION_H_
