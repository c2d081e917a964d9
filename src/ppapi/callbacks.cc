#include "ppapi/callbacks.h"

#include <time.h>

#include <map>
#include <memory>

#include "base/logging.h"
#include "base/staticobject.h"

namespace mpbp {
namespace {

struct Entry {
  std::shared_ptr<const CallbackFactory::Function> function;  // held while it runs
  std::set<uintptr_t>* owner;  // the factory's ids when it runs once, else null
};

std::map<uintptr_t, Entry>& Table() {
  static StaticObject<std::map<uintptr_t, Entry>> table;
  return *table;
}

// Begins anywhere, so that numbers given out before the module was unloaded and loaded again do not
// come back.
uintptr_t NextId() {
  static uintptr_t next = [] {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uintptr_t>(now.tv_sec) << 32 | static_cast<uintptr_t>(now.tv_nsec);
  }();
  return ++next;
}

void Run(void* user_data, int32_t result) {
  const auto id = reinterpret_cast<uintptr_t>(user_data);
  const auto found = Table().find(id);
  if (found == Table().end()) return;
  const std::shared_ptr<const CallbackFactory::Function> function = found->second.function;
  if (found->second.owner) {
    found->second.owner->erase(id);
    Table().erase(found);
  }
  try {
    (*function)(result);
  } catch (const std::exception& e) {
    LOG(LS_ERROR) << "A callback of the browser failed: " << e.what();
  }
}

}  // namespace

PP_CompletionCallback CallbackFactory::Add(Function function, bool once) {
  const uintptr_t id = NextId();
  ids_.insert(id);
  Table()[id] = {std::make_shared<const Function>(std::move(function)), once ? &ids_ : nullptr};
  // Never dereferenced: the browser only hands it back.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return {&Run, reinterpret_cast<void*>(id), PP_COMPLETIONCALLBACK_FLAG_NONE};
}

PP_CompletionCallback CallbackFactory::Once(Function function) {
  return Add(std::move(function), true);
}

PP_CompletionCallback CallbackFactory::Repeating(Function function) {
  return Add(std::move(function), false);
}

bool CallbackFactory::Cancel(const PP_CompletionCallback& callback) {
  const auto id = reinterpret_cast<uintptr_t>(callback.user_data);
  return ids_.erase(id) > 0 && Table().erase(id) > 0;
}

void CallbackFactory::CancelAll() {
  for (const uintptr_t id : ids_) Table().erase(id);
  ids_.clear();
}

}  // namespace mpbp
