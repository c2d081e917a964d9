#include "base/staticobject.h"

#include <atomic>

namespace mpbp {
namespace {

constinit std::atomic<internal::StaticObjectBase*> youngest{nullptr};

}  // namespace

void internal::StaticObjectBase::Register() {
  next_ = youngest.load(std::memory_order_relaxed);
  while (!youngest.compare_exchange_weak(next_, this, std::memory_order_release,
                                         std::memory_order_relaxed)) {
  }
}

void DestroyStaticObjects() {
  while (internal::StaticObjectBase* const object = youngest.load(std::memory_order_acquire)) {
    youngest = object->next_;
    object->destroy_(object);
  }
}

}  // namespace mpbp
