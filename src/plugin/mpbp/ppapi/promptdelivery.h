// Serves the links as soon as there is something to serve, and not only every 100 ms: what the
// option "prompt_delivery" asks for.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_PROMPTDELIVERY_H_
#define MPBP_PLUGIN_MPBP_PPAPI_PROMPTDELIVERY_H_

#include <memory>

#include "base/readinesswatcher.h"
#include "ppapi/callbacks.h"

namespace mpbp {

class BrowserThread;

// One for the process, shared by the instances that want it, gone with the last of them. Its thread
// waits for the sockets and timers of the browser's main thread and asks the browser for one round
// of the pump there; at most one such request is under way, however long the main thread is busy.
//
// On the browser's main thread. The round that it runs may end whoever holds it.
class PromptDelivery : public std::enable_shared_from_this<PromptDelivery> {
 public:
  // The present one, or a new one. Null when the option is off, or with an error line when the
  // system refuses: the pump alone serves the links then.
  [[nodiscard]] static std::shared_ptr<PromptDelivery> ShareIfWanted();
  // At the end of the process: no call into the browser begins after this. From any thread.
  static void StopAtExit();
  ~PromptDelivery();

  // Serves the links of this thread from here on. Null: of none.
  void Watch(const std::shared_ptr<BrowserThread>& thread);
  // After whatever may have changed what there is to wait for: a round of the pump, a call of the
  // page. Costs no call of the system when nothing has.
  void Update();

 private:
  PromptDelivery();

  void OnRequest();

  std::weak_ptr<BrowserThread> thread_;
  CallbackFactory callbacks_;
  PP_CompletionCallback request_{};
  bool request_came_ = false;  // and the watcher is to be armed again
  std::unique_ptr<ReadinessWatcher> watcher_;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_PROMPTDELIVERY_H_
