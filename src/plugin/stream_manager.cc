#include "plugin/stream_manager.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/logging.h"
#include "plugin/httpheaders.h"
#include "plugin/mpbp/ppapi/urlloader.h"

namespace mpbp {
namespace {

constexpr size_t kReadSize = 1024;
constexpr char kDefaultVersion[] = "HTTP/1.1";

}  // namespace

// One request in flight.
class StreamManager::Stream {
 public:
  Stream(StreamManager* manager, PP_Instance instance)
      : manager_(manager),
        loader_(instance),
        read_callback_(callbacks_.Repeating([this](int32_t result) { OnReadComplete(result); })) {}

  // False, with `response` left to the caller, when the request cannot be started.
  bool Start(const HttpRequest& request, std::unique_ptr<HttpResponse>& response);

 private:
  void OnOpenComplete(int32_t result);
  int32_t ReadMore();
  void OnReadComplete(int32_t result);
  void DescribeResponse();
  void Finish();

  StreamManager* const manager_;
  std::unique_ptr<HttpResponse> response_;
  std::array<char, kReadSize> buffer_;  // outlives the loader that writes into it
  UrlLoader loader_;
  UrlResponseInfo info_;
  CallbackFactory callbacks_;
  const PP_CompletionCallback read_callback_;
};

bool StreamManager::Stream::Start(const HttpRequest& request,
                                  std::unique_ptr<HttpResponse>& response) {
  LOG(LS_VERBOSE) << "Start";
  if (request.verb != "POST" && request.verb != "GET") {
    LOG(LS_ERROR) << "HTTP verb not supported: " << request.verb;
    return false;
  }
  UrlRequest url_request;
  url_request.url =
      request.proto + "://" + request.host + ":" + std::to_string(request.port) + request.path;
  url_request.method = request.verb;
  url_request.headers = request.headers;
  url_request.body = request.body;
  const PP_CompletionCallback opened =
      callbacks_.Once([this](int32_t result) { OnOpenComplete(result); });
  const int32_t result = loader_.Open(url_request, opened);
  if (result < 0 && result != PP_OK_COMPLETIONPENDING) {
    LOG(LS_ERROR) << "The browser cannot open " << url_request.url << ", error " << result;
    return false;
  }
  // Opened at once: what follows still comes later, outside the caller's call.
  if (result >= 0 && !CallOnMainThread(0, opened, result)) return false;
  response_ = std::move(response);
  return true;
}

void StreamManager::Stream::OnOpenComplete(int32_t result) {
  LOG(LS_VERBOSE) << "OnOpenComplete";
  if (result != PP_OK) {
    LOG(LS_ERROR) << "OnOpenComplete got error " << result;
    response_->error = HTTP_FAILED;
    Finish();
    return;
  }
  info_ = loader_.ResponseInfo();
  const int32_t read = ReadMore();
  if (read != PP_OK_COMPLETIONPENDING) OnReadComplete(read);
}

int32_t StreamManager::Stream::ReadMore() {
  LOG(LS_VERBOSE) << "ReadMore";
  return loader_.Read(buffer_, read_callback_);
}

void StreamManager::Stream::OnReadComplete(int32_t result) {
  // A loop: a browser that completes each read at once must not make the stack grow.
  for (;;) {
    LOG(LS_VERBOSE) << "OnReadComplete";
    if (result <= 0) break;
    const size_t count = std::min(static_cast<size_t>(result), buffer_.size());
    response_->body.WriteBytes({buffer_.data(), count});
    result = ReadMore();
    if (result == PP_OK_COMPLETIONPENDING) return;
  }
  response_->error = result == 0 ? HTTP_OK : HTTP_FAILED;
  DescribeResponse();
  Finish();
}

void StreamManager::Stream::DescribeResponse() {
  response_->url = info_.Url();
  const std::string block = info_.Headers().value_or("");
  const HttpHeaders headers = ParseHttpHeaders(block);
  if (const auto found = headers.find("last-modified"); found != headers.end()) {
    response_->lastmodified = ParseHttpDate(found->second);
  }
  std::string version = kDefaultVersion;
  if (const auto found = headers.find("version"); found != headers.end()) {
    version = found->second;
  } else {
    LOG(LS_INFO) << "HTTP response missing version info; assuming 1.1.";
  }
  std::optional<std::string> status_line = info_.StatusLine();
  if (!status_line) {
    char line[256];
    snprintf(line, sizeof(line), "%s %d %s", version.c_str(), info_.StatusCode().value_or(0), "");
    status_line = line;
  }
  response_->headers = *status_line + "\n" + block;
}

void StreamManager::Stream::Finish() { manager_->Finish(this, std::move(response_)); }

StreamManager::StreamManager(PP_Instance instance) : instance_(instance) {}

StreamManager::~StreamManager() = default;

bool StreamManager::MakeRequest(const HttpRequest& request,
                                std::unique_ptr<HttpResponse>& response) {
  auto stream = std::make_unique<Stream>(this, instance_);
  if (!stream->Start(request, response)) return false;
  in_flight_.push_back(std::move(stream));
  return true;
}

void StreamManager::Finish(Stream* stream, std::unique_ptr<HttpResponse> response) {
  const auto found = std::find_if(in_flight_.begin(), in_flight_.end(),
                                  [stream](const auto& other) { return other.get() == stream; });
  if (found == in_flight_.end()) return;
  const bool first = finished_.empty();
  finished_.push_back(std::move(*found));
  in_flight_.erase(found);
  if (first) {
    CallOnMainThread(0, callbacks_.Once([this](int32_t) { finished_.clear(); }), 0);
  }
  SignalResponse(response);
}

void StreamManager::Clear() {
  callbacks_.CancelAll();
  in_flight_.clear();
  finished_.clear();
}

}  // namespace mpbp
