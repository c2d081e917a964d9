#include "connector/noprivateservice.h"

#include <utility>

#include "base/thread.h"

namespace mpbp {
namespace {

// The browsers' code for an interface that is not there.
constexpr int32_t kNoInterface = -6;

}  // namespace

int32_t NoPrivateService::RequestPermission(int32_t, Done done) { return Refuse(std::move(done)); }

int32_t NoPrivateService::StartRemoting(std::function<void(int32_t event)>, Done done) {
  return Refuse(std::move(done));
}

int32_t NoPrivateService::StopRemoting(Done done) { return Refuse(std::move(done)); }

int32_t NoPrivateService::Refuse(Done done) {
  refused_.push_back(std::move(done));
  Thread::Current()->Post(this);
  return kPending;
}

void NoPrivateService::OnMessage(Message*) {
  if (refused_.empty()) return;  // ended
  const Done done = std::move(refused_.front());
  refused_.pop_front();
  done(kNoInterface);
}

}  // namespace mpbp
