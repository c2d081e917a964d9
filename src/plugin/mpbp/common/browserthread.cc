#include "plugin/mpbp/common/browserthread.h"

#include <map>

#include "base/criticalsection.h"
#include "base/logging.h"
#include "base/staticobject.h"
#include "base/threadmanager.h"

namespace mpbp {
namespace {

struct Registry {
  CriticalSection lock;
  std::map<Thread*, std::shared_ptr<BrowserThread>> threads MPBP_GUARDED_BY(lock);

  static Registry& Instance() {
    static StaticObject<Registry> registry;
    return *registry;
  }
};

}  // namespace

BrowserThread::BrowserThread(std::unique_ptr<Thread> wrapper, Thread* thread)
    : wrapper_(std::move(wrapper)), thread_(thread) {}

std::shared_ptr<BrowserThread> BrowserThread::Acquire() {
  // Before the lock: only this thread's own value is concerned, and a socket server's lock, which
  // making one takes, is held by whoever releases from inside an event.
  std::unique_ptr<Thread> wrapper = ThreadManager::Instance().WrapCurrentThread();
  Thread* const current = wrapper ? wrapper.get() : Thread::Current();
  Registry& registry = Registry::Instance();
  CritScope scope(registry.lock);
  std::shared_ptr<BrowserThread>& entry = registry.threads[current];
  if (!entry) entry.reset(new BrowserThread(std::move(wrapper), current));
  ++entry->channels_;
  return entry;
}

void BrowserThread::Release() {
  std::shared_ptr<BrowserThread> last;  // outlives the lock: what is queued is deleted with it
  Registry& registry = Registry::Instance();
  CritScope scope(registry.lock);
  if (--channels_ > 0) return;
  const auto found = registry.threads.find(thread_);
  if (found == registry.threads.end()) return;
  last = std::move(found->second);
  registry.threads.erase(found);
  if (!wrapper_) return;  // it was there before us
  if (thread_->IsCurrent()) {
    ThreadManager::Instance().UnwrapCurrentThread();
  } else {
    LOG(LS_ERROR) << "Can't clear the TLS for browser thread because it isn't the current thread.";
  }
}

bool BrowserThread::Pump() {
  if (busy_) return false;
  const BusyScope busy(*this);
  thread_->ProcessMessages(0);
  return true;
}

}  // namespace mpbp
