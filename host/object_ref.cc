#include "host/object_ref.h"

#include <utility>

#include "host/script_object.h"

namespace mpbp::host {

ObjectRef::ObjectRef(std::shared_ptr<ScriptObject> object) : object_(std::move(object)) {
  if (object_) ++object_->references_;
}

ObjectRef::ObjectRef(const ObjectRef& other) : ObjectRef(other.object_) {}

ObjectRef::ObjectRef(ObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

ObjectRef& ObjectRef::operator=(ObjectRef other) noexcept {
  object_.swap(other.object_);
  return *this;
}

ObjectRef::~ObjectRef() { Reset(); }

void ObjectRef::Reset() {
  const auto object = std::exchange(object_, nullptr);
  if (object && --object->references_ == 0) object->OnUnreferenced();
}

}  // namespace mpbp::host
