// Callbacks that the browser runs later, for objects that may be gone by then.
//
// What the browser gets as user data is a number. When it calls, the number is looked up among
// those that are still wanted: a callback that comes after its factory is gone finds nothing to do.
// Numbers are never used again.
//
// On the browser's main thread only.
#ifndef MPBP_PPAPI_CALLBACKS_H_
#define MPBP_PPAPI_CALLBACKS_H_

#include <cstdint>
#include <functional>
#include <set>

#include "abi/browser_abi.h"

namespace mpbp {

// Makes callbacks for its owner, and cancels them when it goes.
class CallbackFactory {
 public:
  using Function = std::function<void(int32_t result)>;

  CallbackFactory() = default;
  CallbackFactory(const CallbackFactory&) = delete;
  CallbackFactory& operator=(const CallbackFactory&) = delete;
  ~CallbackFactory() { CancelAll(); }

  // Runs once. The function may delete the factory.
  [[nodiscard]] PP_CompletionCallback Once(Function function);
  // Runs as often as the browser calls it, until it is cancelled; running it allocates nothing.
  [[nodiscard]] PP_CompletionCallback Repeating(Function function);

  // Cancels a callback that will not be called, or must not run. False when it has run, or was
  // cancelled before.
  bool Cancel(const PP_CompletionCallback& callback);
  void CancelAll();

 private:
  [[nodiscard]] PP_CompletionCallback Add(Function function, bool once);

  std::set<uintptr_t> ids_;  // of every callback that has not run or been cancelled
};

}  // namespace mpbp

#endif  // MPBP_PPAPI_CALLBACKS_H_
