// The resource behind the URL loader table. Main thread only.
#ifndef MPBP_HOST_URL_LOADER_H_
#define MPBP_HOST_URL_LOADER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "abi/browser_abi.h"
#include "host/http_transfer.h"
#include "host/resource.h"
#include "host/url_request_info.h"

namespace mpbp::host {

struct Core;

// Takes the text that a module sets as the headers property apart into its lines.
std::vector<std::string> SplitHeaderLines(const std::string& text);

class UrlLoader final : public Resource, public std::enable_shared_from_this<UrlLoader> {
 public:
  // `page_origin`: what a loader without universal access may reach.
  UrlLoader(Core& core, PP_Instance instance, std::string page_origin)
      : core_(core), instance_(instance), page_origin_(std::move(page_origin)) {}

  PP_Instance instance() const { return instance_; }

  const char* kind() const override { return "URL loader"; }
  // Ends the request. A callback that is pending comes later with PP_ERROR_ABORTED.
  void Abort() override;

  void GrantUniversalAccess() { universal_access_ = true; }
  // As the functions of the table: PP_OK_COMPLETIONPENDING, a result, or an error at once.
  int32_t Open(const UrlRequestInfo& info, PP_CompletionCallback callback);
  int32_t Read(char* buffer, int32_t size, PP_CompletionCallback callback);
  // Nothing before the response's head is here.
  std::optional<HttpResponse> response() const;

 private:
  enum class State { kNew, kOpening, kOpen, kClosed };
  struct Pending {
    PP_CompletionCallback callback;
    char* buffer;  // the module's, until the callback ran
    int32_t size;
  };

  bool MayReach(const std::string& url) const;
  void OnProgress();
  // Nothing when the network has not answered yet.
  std::optional<int32_t> OpenResult();
  std::optional<int32_t> PendingResult();
  bool AtOnce(PP_CompletionCallback callback) const;
  // Has OnProgress called from the main loop while this lives. What it returns is for any thread.
  std::function<void()> ProgressPoster();
  // Hands out a result that is there at once.
  int32_t Complete(PP_CompletionCallback callback, int32_t result) const;

  Core& core_;
  const PP_Instance instance_;
  const std::string page_origin_;
  bool universal_access_ = false;
  State state_ = State::kNew;
  std::optional<Pending> pending_;
  std::unique_ptr<HttpTransfer> transfer_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_URL_LOADER_H_
