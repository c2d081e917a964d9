#include "base/signalthread.h"

#include "base/criticalsection.h"
#include "base/thread.h"

namespace mpbp {

// Shared by the owner and the worker. The owner's side is cleared, under the lock, when it goes.
class SignalThread::Job : public Runnable {
 public:
  Job(std::shared_ptr<Work> work, Thread* owner_thread, SignalThread* owner)
      : work_(std::move(work)), owner_thread_(owner_thread), owner_(owner) {}

  void Abandon() {
    CritScope scope(lock_);
    owner_ = nullptr;
  }

  // Keeps the job alive until the worker has run it.
  void KeepUntilRun(std::shared_ptr<Job> self) { self_ = std::move(self); }

  void Run(Thread*) override {
    const std::shared_ptr<Job> self = std::move(self_);
    work_->DoWork();
    CritScope scope(lock_);
    if (owner_) owner_thread_->Post(owner_);
  }

 private:
  std::shared_ptr<Work> work_;
  std::shared_ptr<Job> self_;
  CriticalSection lock_;
  Thread* owner_thread_;  // outlives the owner
  SignalThread* owner_ MPBP_GUARDED_BY(lock_);
};

SignalThread::SignalThread(std::shared_ptr<Work> work) : work_(std::move(work)) {}

SignalThread::~SignalThread() {
  if (job_) job_->Abandon();
}

bool SignalThread::Start() {
  Thread* const current = Thread::Current();
  if (!current || job_) return false;
  auto job = std::make_shared<Job>(work_, current, this);
  auto worker = std::make_unique<Thread>();
  static_cast<void>(worker->SetName("SignalThread", this));  // not started yet
  worker->set_delete_self_when_complete();
  job->KeepUntilRun(job);
  if (!worker->Start(job.get())) {
    job->KeepUntilRun(nullptr);
    return false;
  }
  static_cast<void>(worker.release());  // deletes itself
  job_ = std::move(job);
  return true;
}

void SignalThread::OnMessage(Message*) { SignalWorkDone(this); }

}  // namespace mpbp
