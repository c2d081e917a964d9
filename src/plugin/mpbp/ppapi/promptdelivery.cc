#include "plugin/mpbp/ppapi/promptdelivery.h"

#include <optional>

#include "base/criticalsection.h"
#include "base/logging.h"
#include "base/staticobject.h"
#include "optionspersistence.h"
#include "plugin/mpbp/common/browserthread.h"
#include "ppapi/browser.h"

namespace mpbp {
namespace {

constexpr char kOption[] = "prompt_delivery";

// How long the end of the process waits for a call into the browser to return.
constexpr int kExitWaitMs = 1000;

bool IsWanted() {
  int32_t value = 0;
  return CreateOptionsPersistence()->GetIntValue(kOption, &value) && value != 0;
}

// The one of the process. The watcher's own thread never takes the lock.
struct Current {
  CriticalSection lock;
  std::weak_ptr<PromptDelivery> delivery;
  ReadinessWatcher* watcher MPBP_GUARDED_BY(lock) = nullptr;  // of `delivery`

  static Current& Instance() {
    static StaticObject<Current> current;
    return *current;
  }
};

}  // namespace

std::shared_ptr<PromptDelivery> PromptDelivery::ShareIfWanted() {
  if (!IsWanted()) return nullptr;
  Current& current = Current::Instance();
  if (std::shared_ptr<PromptDelivery> present = current.delivery.lock()) return present;
  std::shared_ptr<PromptDelivery> made(new PromptDelivery);
  if (!made->watcher_) return nullptr;
  current.delivery = made;
  CritScope scope(current.lock);
  current.watcher = made->watcher_.get();
  return made;
}

void PromptDelivery::StopAtExit() {
  Current& current = Current::Instance();
  CritScope scope(current.lock);
  if (current.watcher) current.watcher->Stop(kExitWaitMs);
}

PromptDelivery::PromptDelivery() {
  request_ = callbacks_.Repeating([this](int32_t) { OnRequest(); });
  // The browser's table stays for as long as the module is there. Runs on the watcher's thread.
  watcher_ = ReadinessWatcher::Create(
      [core = Browser().core, request = request_] { core->CallOnMainThread(0, request, 0); });
}

PromptDelivery::~PromptDelivery() {
  if (!watcher_) return;
  Current& current = Current::Instance();
  CritScope scope(current.lock);
  if (current.watcher == watcher_.get()) current.watcher = nullptr;
  watcher_.reset();
}

void PromptDelivery::Watch(const std::shared_ptr<BrowserThread>& thread) {
  if (thread && thread == thread_.lock()) return;
  thread_ = thread;
  watcher_->Watch(thread ? thread->thread()->socket_server()->ReadyDescriptor() : -1);
}

void PromptDelivery::OnRequest() {
  // Held: the page may remove the last instance from below.
  const std::shared_ptr<PromptDelivery> self = shared_from_this();
  request_came_ = true;
  const std::shared_ptr<BrowserThread> thread = thread_.lock();
  // In a nested loop of the page, the round that is on the stack arms the watcher when it ends.
  if (thread && !thread->Pump()) return;
  Update();
}

void PromptDelivery::Update() {
  const std::shared_ptr<BrowserThread> thread = thread_.lock();
  if (!thread) return;
  thread->thread()->socket_server()->UpdateReadyDescriptor();
  if (const std::optional<uint32_t> due = thread->thread()->NextDue()) {
    watcher_->SetTimer(*due);
  } else {
    watcher_->ClearTimer();
  }
  // Whatever the round on the stack has still to serve would be told of again and again.
  if (!request_came_ || thread->busy()) return;
  request_came_ = false;
  watcher_->Rearm();
}

}  // namespace mpbp
