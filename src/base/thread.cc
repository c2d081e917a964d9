#include "base/thread.h"

#include <sched.h>

#include <algorithm>
#include <cstdio>

#include "base/logging.h"
#include "base/threadmanager.h"
#include "base/timeutils.h"

namespace mpbp {
namespace {

// How long one ProcessMessages(0) may go on dispatching.
constexpr int32_t kRoundBudgetMs = 50;

std::string WithAddress(const std::string& name, const void* object) {
  char address[32];
  snprintf(address, sizeof(address), " 0x%p", object);
  return name + address;
}

}  // namespace

class Thread::Completion {
 public:
  explicit Completion(Thread* sender) : sender_(sender) {}

  // Under the lock: the sender must not go on, and be gone, before it is woken.
  void Finish() {
    CritScope scope(lock_);
    finished_ = true;
    sender_->socket_server()->WakeUp();
  }
  bool finished() {
    CritScope scope(lock_);
    return finished_;
  }

 private:
  CriticalSection lock_;
  Thread* const sender_;
  bool finished_ MPBP_GUARDED_BY(lock_) = false;
};

Thread::Thread(SocketServer* socket_server)
    : MessageQueue(socket_server), name_(WithAddress("Thread", this)) {}

Thread::~Thread() {
  Stop();
  Unregister();
  Thread::Clear(nullptr);
}

Thread* Thread::Current() { return ThreadManager::Instance().CurrentThread(); }

bool Thread::SetName(const std::string& name, const void* object) {
  if (started_) return false;
  name_ = object ? WithAddress(name, object) : name;
  return true;
}

bool Thread::SetPriority(ThreadPriority priority) {
  if (started_) return false;
  priority_ = priority;
  return true;
}

bool Thread::Start(Runnable* runnable) {
  if (!owned_ || started_) return false;
  Restart();
  ThreadManager::Instance();  // made before the thread looks itself up
  runnable_ = runnable;
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error == 0) {
    ApplyPriority(&attributes);
    const bool detached = delete_self_when_complete_;
    if (detached) pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    // A thread that deletes itself may be gone when pthread_create returns.
    started_ = true;
    pthread_t handle{};
    error = pthread_create(&handle, &attributes, &Thread::ThreadMain, this);
    pthread_attr_destroy(&attributes);
    if (error == 0) {
      if (!detached) handle_ = handle;
      return true;
    }
    started_ = false;
  }
  LOG(LS_ERROR) << "Unable to create pthread, error " << error;
  return false;
}

void Thread::ApplyPriority(pthread_attr_t* attributes) const {
  if (priority_ == PRIORITY_NORMAL) return;
  if (priority_ == PRIORITY_IDLE) {
    LOG(LS_WARNING) << "PRIORITY_IDLE not supported";
    return;
  }
  if (pthread_attr_setschedpolicy(attributes, SCHED_FIFO) != 0) {
    LOG(LS_ERROR) << "pthread_attr_setschedpolicy";
  }
  sched_param param{};
  if (pthread_attr_getschedparam(attributes, &param) != 0) {
    LOG(LS_ERROR) << "pthread_attr_getschedparam";
    return;
  }
  param.sched_priority = priority_ == PRIORITY_HIGH ? 6 : 4;
  if (pthread_attr_setschedparam(attributes, &param) != 0) {
    LOG(LS_ERROR) << "pthread_attr_setschedparam";
  }
}

void* Thread::ThreadMain(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  ThreadManager::Instance().SetCurrentThread(thread);
  if (thread->runnable_) {
    thread->runnable_->Run(thread);
  } else {
    thread->Run();
  }
  if (thread->delete_self_when_complete_) {
    thread->started_ = false;
    ThreadManager::Instance().SetCurrentThread(nullptr);
    delete thread;
  }
  return nullptr;
}

void Thread::Stop() {
  Quit();
  if (!started_) return;
  const int error = pthread_join(handle_, nullptr);
  if (error != 0) LOG_ERR_EX(LS_ERROR, error) << "pthread_join";
  started_ = false;
}

bool Thread::ProcessMessages(int ms) {
  const uint32_t start = Time();
  const int32_t budget = ms == 0 ? kRoundBudgetMs : ms;
  int wait = ms;
  for (;;) {
    Message message;
    if (!Get(&message, wait)) return !IsQuitting();
    Dispatch(&message);
    if (ms == kForever) continue;
    const int32_t elapsed = TimeDiff(Time(), start);
    if (elapsed >= budget) return !IsQuitting();
    if (ms != 0) wait = ms - elapsed;
  }
}

void Thread::Send(MessageHandler* handler, uint32_t id, std::unique_ptr<MessageData> data) {
  if (stopping()) return;
  Message message{handler, id, std::move(data), 0};
  if (IsCurrent()) {
    Dispatch(&message);
    return;
  }
  ThreadManager& manager = ThreadManager::Instance();
  std::unique_ptr<Thread> wrapped;
  if (!manager.CurrentThread()) wrapped = manager.WrapCurrentThread();
  Thread* const sender = manager.CurrentThread();
  if (!sender) return;  // no thread-local storage: logged when it failed

  const auto completion = std::make_shared<Completion>(sender);
  bool waited = false;
  {
    CritScope scope(crit_);
    pending_sends_.push_back({std::move(message), completion});
    has_sends_ = true;
    socket_server()->WakeUp();
  }
  // From here on this object may go at any time: that ends the send.
  while (!completion->finished()) {
    sender->ReceiveSends();
    // One that fails is repeated.
    static_cast<void>(sender->socket_server()->Wait(kForever, false));
    waited = true;
  }
  // The waiting may have eaten wake-ups that were meant for the sender's queue.
  if (waited) sender->socket_server()->WakeUp();
  if (wrapped) manager.UnwrapCurrentThread();
}

void Thread::ReceiveSends() {
  if (!has_sends_) return;
  crit_.Enter();
  has_sends_ = false;  // all of them are run below, or by whom a handler calls
  while (!pending_sends_.empty()) {
    PendingSend send = std::move(pending_sends_.front());
    pending_sends_.pop_front();
    crit_.Leave();
    Dispatch(&send.message);
    send.message = Message();
    send.completion->Finish();
    crit_.Enter();
  }
  crit_.Leave();
}

void Thread::Clear(const MessageHandler* handler, uint32_t id, MessageList* removed) {
  MessageList deleted;  // outlives the lock: payloads may hold anything
  MessageList& out = removed ? *removed : deleted;
  CritScope scope(crit_);
  for (auto it = pending_sends_.begin(); it != pending_sends_.end();) {
    if (!it->message.Matches(handler, id)) {
      ++it;
      continue;
    }
    out.push_back(std::move(it->message));
    it->completion->Finish();
    it = pending_sends_.erase(it);
  }
  MessageQueue::Clear(handler, id, &out);
}

}  // namespace mpbp
