// Makes HTTP requests for the engine through the browser's URL loader, with the rights of the
// plug-in instance.
#ifndef MPBP_PLUGIN_STREAM_MANAGER_H_
#define MPBP_PLUGIN_STREAM_MANAGER_H_

#include <memory>
#include <vector>

#include "base/signal.h"
#include "httpmessages.h"
#include "ppapi/callbacks.h"

namespace mpbp {

// Any number of requests run at the same time. On the browser's main thread. Every call of the
// browser may end in Clear, and in the last reference of the owner: what is on the stack is held.
class StreamManager : public std::enable_shared_from_this<StreamManager> {
 public:
  explicit StreamManager(PP_Instance instance);
  StreamManager(const StreamManager&) = delete;
  StreamManager& operator=(const StreamManager&) = delete;
  ~StreamManager();

  // Starts a request. True takes `response` and raises SignalResponse with it when the request has
  // ended, however it ended: later, or inside this call where the browser completes inside its own.
  // False leaves it with the caller.
  [[nodiscard]] bool MakeRequest(const HttpRequest& request,
                                 std::unique_ptr<HttpResponse>& response);
  // Ends every request; no response of theirs follows.
  void Clear();

  Signal<std::unique_ptr<HttpResponse>&> SignalResponse;  // whoever wants the response moves it out

 private:
  class Stream;

  void Finish(std::shared_ptr<Stream> stream, std::unique_ptr<HttpResponse> response);

  const PP_Instance instance_;
  std::vector<std::shared_ptr<Stream>> in_flight_;
  std::vector<std::shared_ptr<Stream>> finished_;  // deleted later: they are on the stack
  CallbackFactory callbacks_;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_STREAM_MANAGER_H_
