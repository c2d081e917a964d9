// Objects that live as long as the process, or as the module that they are part of.
//
// A browser may exit at any time, with our objects in use on other threads and without telling the
// module, so the end of the process destroys nothing here. Only a module that is unloaded from a
// process that goes on takes its objects with it.
#ifndef MPBP_BASE_STATICOBJECT_H_
#define MPBP_BASE_STATICOBJECT_H_

#include <new>
#include <utility>

namespace mpbp {

// Destroys every static object, the youngest first. For the unloading of a module, when no code of
// it runs any more and none will.
void DestroyStaticObjects();

namespace internal {

class StaticObjectBase {
 public:
  StaticObjectBase(const StaticObjectBase&) = delete;
  StaticObjectBase& operator=(const StaticObjectBase&) = delete;

 protected:
  explicit StaticObjectBase(void (*destroy)(StaticObjectBase*)) : destroy_(destroy) {}
  ~StaticObjectBase() = default;

  // Puts the object on the list of those to destroy. Any thread.
  void Register();

 private:
  friend void mpbp::DestroyStaticObjects();

  void (*const destroy_)(StaticObjectBase*);
  StaticObjectBase* next_ = nullptr;
};

}  // namespace internal

// For static variables inside functions:
//
//   static StaticObject<Registry> registry;
//   return *registry;
template <typename T>
class StaticObject final : private internal::StaticObjectBase {
 public:
  template <typename... Args>
  explicit StaticObject(Args&&... args) : StaticObjectBase(&Destroy) {
    new (storage_) T(std::forward<Args>(args)...);
    Register();
  }

  T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
  T* operator->() { return &**this; }

 private:
  static void Destroy(StaticObjectBase* base) { (**static_cast<StaticObject*>(base)).~T(); }

  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace mpbp

#endif  // MPBP_BASE_STATICOBJECT_H_
