#include "plugin/mpbp/ppapi/browserprivateservice.h"

#include <utility>

namespace mpbp {

static_assert(PrivateService::kPending == PP_OK_COMPLETIONPENDING);

BrowserPrivateService::BrowserPrivateService(PP_Instance instance)
    : browser_(instance), event_callback_(callbacks_.Repeating([this](int32_t event) {
        const auto on_event = on_event_;  // it may start another session
        if (on_event) on_event(event);
      })) {}

int32_t BrowserPrivateService::Result(int32_t result, const PP_CompletionCallback& callback) {
  // A callback that has run is the answer, whatever was returned.
  return result == kPending || !callbacks_.Cancel(callback) ? kPending : result;
}

int32_t BrowserPrivateService::RequestPermission(int32_t kind, Done done) {
  const PP_CompletionCallback callback = callbacks_.Once(std::move(done));
  return Result(browser_.RequestPermission(kind, callback), callback);
}

int32_t BrowserPrivateService::StartRemoting(std::function<void(int32_t event)> on_event,
                                             Done done) {
  on_event_ = std::move(on_event);
  const PP_CompletionCallback callback = callbacks_.Once(std::move(done));
  return Result(browser_.StartRemoting(event_callback_.func, event_callback_.user_data, callback),
                callback);
}

int32_t BrowserPrivateService::StopRemoting(Done done) {
  const PP_CompletionCallback callback = callbacks_.Once(std::move(done));
  return Result(browser_.StopRemoting(callback), callback);
}

}  // namespace mpbp
