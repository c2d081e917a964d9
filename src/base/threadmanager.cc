#include "base/threadmanager.h"

#include "base/logging.h"
#include "base/staticobject.h"

namespace mpbp {

ThreadManager& ThreadManager::Instance() {
  static StaticObject<ThreadManager> manager;
  return *manager;
}

ThreadManager::ThreadManager() {
  const int error = pthread_key_create(&key_, nullptr);
  key_made_ = error == 0;
  if (!key_made_) LOG_ERR_EX(LS_ERROR, error) << "pthread_key_create";
}

ThreadManager::~ThreadManager() {
  if (key_made_) pthread_key_delete(key_);
}

Thread* ThreadManager::CurrentThread() const {
  return key_made_ ? static_cast<Thread*>(pthread_getspecific(key_)) : nullptr;
}

void ThreadManager::SetCurrentThread(Thread* thread) {
  if (!key_made_) return;
  const int error = pthread_setspecific(key_, thread);
  if (error != 0) LOG_ERR_EX(LS_ERROR, error) << "pthread_setspecific";
}

std::unique_ptr<Thread> ThreadManager::WrapCurrentThread() {
  if (CurrentThread()) return nullptr;
  auto thread = std::make_unique<Thread>();
  thread->owned_ = false;
  SetCurrentThread(thread.get());
  return thread;
}

void ThreadManager::UnwrapCurrentThread() { SetCurrentThread(nullptr); }

}  // namespace mpbp
