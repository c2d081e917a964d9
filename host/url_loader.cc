#include "host/url_loader.h"

#include <utility>

#include "host/core.h"
#include "host/origin.h"

namespace mpbp::host {

std::vector<std::string> SplitHeaderLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find_first_of("\r\n", start), text.size());
    if (end > start) lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

bool UrlLoader::MayReach(const std::string& url) const {
  return universal_access_ || OriginOf(url) == page_origin_;
}

bool UrlLoader::AtOnce(PP_CompletionCallback callback) const {
  return core_.options.complete_reads_at_once || core_.options.complete_inside ||
         (callback.flags & PP_COMPLETIONCALLBACK_FLAG_OPTIONAL) != 0;
}

std::function<void()> UrlLoader::ProgressPoster() {
  return [&loop = core_.loop, weak = weak_from_this()] {
    loop.Post(0, [weak] {
      if (const auto self = weak.lock()) self->OnProgress();
    });
  };
}

int32_t UrlLoader::Open(const UrlRequestInfo& info, PP_CompletionCallback callback) {
  if (state_ != State::kNew) return PP_ERROR_INPROGRESS;
  if (callback.func == nullptr) return PP_ERROR_BADARGUMENT;
  if (!MayReach(info.request.url)) {
    state_ = State::kClosed;
    core_.PostCallback(callback, PP_ERROR_FAILED);
    return PP_OK_COMPLETIONPENDING;
  }
  const HttpSettings settings{core_.options.ca_file, core_.options.connect_to,
                              core_.options.connect_timeout_ms, core_.options.http_timeout_ms};
  transfer_ = HttpTransfer::Start(info.request, settings, ProgressPoster());
  if (!transfer_) return PP_ERROR_FAILED;
  state_ = State::kOpening;
  pending_ = Pending{callback, nullptr, 0};
  if (!core_.options.complete_reads_at_once && !core_.options.complete_inside) {
    return PP_OK_COMPLETIONPENDING;
  }
  transfer_->AwaitHeaders();
  pending_.reset();
  return Complete(callback, OpenResult().value_or(PP_ERROR_FAILED));
}

int32_t UrlLoader::Complete(PP_CompletionCallback callback, int32_t result) const {
  if (!core_.options.complete_inside) return result;
  callback.func(callback.user_data, result);
  return PP_OK_COMPLETIONPENDING;
}

std::optional<int32_t> UrlLoader::OpenResult() {
  std::optional<int32_t> result = transfer_->opened();
  if (!result) return std::nullopt;
  if (*result == PP_OK && !MayReach(transfer_->response().url)) result = PP_ERROR_FAILED;
  state_ = *result == PP_OK ? State::kOpen : State::kClosed;
  return result;
}

int32_t UrlLoader::Read(char* buffer, int32_t size, PP_CompletionCallback callback) {
  if (state_ != State::kOpen) return PP_ERROR_FAILED;
  if (pending_) return PP_ERROR_INPROGRESS;
  if (callback.func == nullptr || buffer == nullptr || size <= 0) return PP_ERROR_BADARGUMENT;
  if (AtOnce(callback)) {
    if (core_.options.complete_reads_at_once || core_.options.complete_inside) {
      transfer_->AwaitBody();
    }
    if (const auto result = transfer_->Read(buffer, size)) return Complete(callback, *result);
  }
  pending_ = Pending{callback, buffer, size};
  ProgressPoster()();
  return PP_OK_COMPLETIONPENDING;
}

std::optional<int32_t> UrlLoader::PendingResult() {
  if (state_ == State::kOpening) return OpenResult();
  return transfer_->Read(pending_->buffer, pending_->size);
}

void UrlLoader::OnProgress() {
  if (!pending_) return;
  const auto result = PendingResult();
  if (!result) return;
  const PP_CompletionCallback callback = pending_->callback;
  pending_.reset();
  callback.func(callback.user_data, *result);  // may release or reopen this loader
}

void UrlLoader::Abort() {
  state_ = State::kClosed;
  if (const auto pending = std::exchange(pending_, std::nullopt)) {
    core_.PostCallback(pending->callback, PP_ERROR_ABORTED);
  }
  transfer_.reset();
}

std::optional<HttpResponse> UrlLoader::response() const {
  if (state_ != State::kOpen) return std::nullopt;
  return transfer_->response();
}

}  // namespace mpbp::host
