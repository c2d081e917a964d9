#include "plugin/stream_manager.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <utility>

#include "base/logging.h"
#include "ppapi/browser.h"
#include "ppapi/urlloader.h"

namespace mpbp {
namespace {

constexpr size_t kReadSize = 1024;

}  // namespace

// One request in flight. Each of its callbacks holds it, and asks after every call of the browser
// whether it has been ended meanwhile.
class StreamManager::Stream : public std::enable_shared_from_this<Stream> {
 public:
  Stream(std::weak_ptr<StreamManager> manager, PP_Instance instance)
      : manager_(std::move(manager)), loader_(instance) {}

  // False, with `response` left to the caller, when the request cannot be started.
  [[nodiscard]] bool Start(const HttpRequest& request, std::unique_ptr<HttpResponse>& response);
  // Nothing of it follows.
  void End();

 private:
  CallbackFactory::Function Bind(void (Stream::*method)(int32_t result));
  void OnOpenComplete(int32_t result);
  void ReadBody();
  [[nodiscard]] int32_t ReadMore();
  void OnReadComplete(int32_t result);
  [[nodiscard]] bool TakeBytes(int32_t result);
  void DescribeResponse();
  void Fail();
  void Finish();

  const std::weak_ptr<StreamManager> manager_;
  std::unique_ptr<HttpResponse> response_;  // null once the request has ended
  std::array<char, kReadSize> buffer_;      // outlives the loader that writes into it
  UrlLoader loader_;
  UrlResponseInfo info_;
  CallbackFactory callbacks_;
  PP_CompletionCallback read_callback_{};
  bool reading_ = false;                // a read has not completed
  bool in_read_ = false;                // ReadResponseBody is on the stack
  std::optional<int32_t> read_result_;  // of the read that completed inside that call
};

CallbackFactory::Function StreamManager::Stream::Bind(void (Stream::*method)(int32_t result)) {
  return [weak = weak_from_this(), method](int32_t result) {
    const std::shared_ptr<Stream> self = weak.lock();
    if (!self) return;
    try {
      (*self.*method)(result);
    } catch (const std::bad_alloc&) {
      self->Fail();
    }
  };
}

bool StreamManager::Stream::Start(const HttpRequest& request,
                                  std::unique_ptr<HttpResponse>& response) {
  LOG(LS_VERBOSE) << "Start";
  if (!IsSupportedVerb(request.verb)) return false;
  UrlRequest url_request;
  url_request.url = RequestUrl(request);
  url_request.method = request.verb;
  url_request.headers = request.headers;
  url_request.body = request.body;
  read_callback_ = callbacks_.Repeating(Bind(&Stream::OnReadComplete));
  const PP_CompletionCallback opened = callbacks_.Once(Bind(&Stream::OnOpenComplete));
  // The callback may come inside the call: everything is in place before it.
  response_ = std::move(response);
  const int32_t result = loader_.Open(url_request, opened);
  if (result == PP_OK_COMPLETIONPENDING || !response_) return true;
  if (result >= 0 && CallOnMainThread(0, opened, result)) return true;
  // A callback that has run is the answer, whatever was returned.
  if (!callbacks_.Cancel(opened)) return true;
  LOG(LS_ERROR) << "The browser cannot open " << url_request.url << ", error " << result;
  response = std::move(response_);
  return false;
}

void StreamManager::Stream::End() {
  response_.reset();
  callbacks_.CancelAll();
  loader_.Close();
}

void StreamManager::Stream::OnOpenComplete(int32_t result) {
  LOG(LS_VERBOSE) << "OnOpenComplete";
  if (result != PP_OK) {
    LOG(LS_ERROR) << "OnOpenComplete got error " << result;
    Fail();
    return;
  }
  info_ = loader_.ResponseInfo();
  ReadBody();
}

// A loop: a browser that completes each read at once, by its result or by running the callback
// inside the call, must not make the stack grow.
void StreamManager::Stream::ReadBody() {
  while (response_) {
    const int32_t result = ReadMore();
    if (result == PP_OK_COMPLETIONPENDING) return;
    reading_ = false;
    LOG(LS_VERBOSE) << "OnReadComplete";
    if (!TakeBytes(result)) return;
  }
}

int32_t StreamManager::Stream::ReadMore() {
  LOG(LS_VERBOSE) << "ReadMore";
  read_result_.reset();
  reading_ = true;
  in_read_ = true;
  const int32_t result = loader_.Read(buffer_, read_callback_);
  in_read_ = false;
  return read_result_.value_or(result);
}

void StreamManager::Stream::OnReadComplete(int32_t result) {
  if (!reading_ || read_result_) return;  // nobody waits for it
  if (in_read_) {
    read_result_ = result;
    return;
  }
  reading_ = false;
  LOG(LS_VERBOSE) << "OnReadComplete";
  if (TakeBytes(result)) ReadBody();
}

// True when there may be more.
bool StreamManager::Stream::TakeBytes(int32_t result) {
  if (!response_) return false;
  if (result > 0) {
    const size_t count = std::min(static_cast<size_t>(result), buffer_.size());
    response_->body.WriteBytes({buffer_.data(), count});
    return true;
  }
  response_->error = result == 0 ? HTTP_OK : HTTP_FAILED;
  DescribeResponse();
  Finish();
  return false;
}

void StreamManager::Stream::DescribeResponse() {
  std::optional<std::string> url = info_.Url();
  const std::string block = info_.Headers().value_or("");
  std::optional<std::string> status_line = info_.StatusLine();
  const int32_t status_code = info_.StatusCode().value_or(0);
  if (!response_) return;  // ended while the browser was asked
  response_->url = std::move(url);
  mpbp::DescribeResponse(block, std::move(status_line), status_code, response_.get());
}

void StreamManager::Stream::Fail() {
  if (!response_) return;
  response_->error = HTTP_FAILED;
  response_->body.Clear();  // allocates nothing: there may be no memory
  Finish();
}

void StreamManager::Stream::Finish() {
  const std::shared_ptr<StreamManager> manager = manager_.lock();
  if (manager && response_) manager->Finish(shared_from_this(), std::move(response_));
}

StreamManager::StreamManager(PP_Instance instance) : instance_(instance) {}

StreamManager::~StreamManager() { Clear(); }

bool StreamManager::MakeRequest(const HttpRequest& request,
                                std::unique_ptr<HttpResponse>& response) {
  const std::shared_ptr<StreamManager> self = shared_from_this();
  const auto stream = std::make_shared<Stream>(self, instance_);
  in_flight_.push_back(stream);
  if (stream->Start(request, response)) return true;
  std::erase(in_flight_, stream);
  return false;
}

void StreamManager::Finish(std::shared_ptr<Stream> stream, std::unique_ptr<HttpResponse> response) {
  std::erase(in_flight_, stream);
  finished_.push_back(std::move(stream));
  if (finished_.size() == 1) {
    const auto forget = [weak = weak_from_this()](int32_t) {
      const std::shared_ptr<StreamManager> self = weak.lock();
      // Their loaders call the browser while they go.
      if (self) std::exchange(self->finished_, {}).clear();
    };
    // Without the core table there is no module.
    static_cast<void>(CallOnMainThread(0, callbacks_.Once(forget), 0));
  }
  SignalResponse(response);
}

void StreamManager::Clear() {
  callbacks_.CancelAll();
  const std::vector<std::shared_ptr<Stream>> in_flight = std::exchange(in_flight_, {});
  const std::vector<std::shared_ptr<Stream>> finished = std::exchange(finished_, {});
  for (const std::shared_ptr<Stream>& stream : in_flight) stream->End();
}

}  // namespace mpbp
