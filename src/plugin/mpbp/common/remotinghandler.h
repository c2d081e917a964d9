// Serves the engine's requests for permissions and remoting sessions through the private service.
// Requests come with the engine's texts; answers go back to the engine, never to the page.
//
//   ["mpbp-request-permission", id, type, tag]   answered by
//                          ["mpbp-request-permission-result", type, id, tag, granted]
//   ["mpbp-start-remoting", id]                  ["mpbp-terminate-remoting-event", "", id] when it
//                                                fails, or when the session ends
//   ["mpbp-stop-remoting", id]                   not answered
#ifndef MPBP_PLUGIN_MPBP_COMMON_REMOTINGHANDLER_H_
#define MPBP_PLUGIN_MPBP_COMMON_REMOTINGHANDLER_H_

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/signal.h"
#include "plugin/mpbp/common/privateservice.h"

namespace mpbp {

// On the browser's main thread. The browser's callbacks may come after the handler is gone, or
// inside the calls that they belong to. Whoever calls HandleMessage holds the handler meanwhile:
// the browser may show a dialogue inside, and the page may end.
class RemotingHandler : public std::enable_shared_from_this<RemotingHandler> {
 public:
  explicit RemotingHandler(std::unique_ptr<PrivateService> service);
  RemotingHandler(const RemotingHandler&) = delete;
  RemotingHandler& operator=(const RemotingHandler&) = delete;

  // True when the text was one of the three requests, well-formed or not: the page does not get it.
  [[nodiscard]] bool HandleMessage(const std::string& text);
  // No answer of the service does anything from here on.
  void End() { service_->End(); }

  Signal<const std::string&> SignalOutgoing;  // an answer for the engine

 private:
  // What the answer to a permission request repeats from it.
  struct Permission {
    std::string id;
    int32_t type = 0;
    uint32_t tag = 0;
  };

  // `function` with this handler, for as long as there is one; it is held meanwhile.
  PrivateService::Done Bind(std::function<void(RemotingHandler&, int32_t)> function);
  void RequestPermission(const Json::Value& message);
  void OnPermission(const Permission& permission, int32_t result);
  void SendPermissionResult(const Permission& permission, bool granted);
  void StartRemoting(const Json::Value& message);
  void OnStarted(const std::string& id, int32_t result);
  void OnRemotingEvent(int32_t event);
  void StopRemoting(const Json::Value& message);
  void SendTerminateEvent(const std::string& id);

  const std::unique_ptr<PrivateService> service_;
  std::string remoting_id_;  // of the session that the browser confirmed; empty when there is none
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_REMOTINGHANDLER_H_
