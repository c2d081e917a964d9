// HTTP as the browser's network stack does it: redirects followed, TLS checked, bodies held back
// while nobody reads them.
#ifndef MPBP_HOST_HTTP_CLIENT_H_
#define MPBP_HOST_HTTP_CLIENT_H_

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/main_loop.h"

namespace mpbp::host {

struct HttpRequest {
  std::string url;
  std::string method = "GET";
  std::vector<std::string> headers;  // "Name: value", no line ends
  std::string body;
};

struct HttpResponse {
  std::string url;  // the last one, after redirects
  int32_t status = 0;
  std::string reason;
  std::string headers;  // lines ended by "\n"; repeated ones joined with ", "
};

struct HttpSettings {
  std::string ca_file;                  // empty: the system's own
  std::vector<std::string> connect_to;  // "HOST:PORT:TOHOST:TOPORT"
  int64_t connect_timeout_ms = 30000;
  int64_t timeout_ms = 0;  // for a whole request; 0: none
};

// "scheme://host:port" of an http or https URL, the port always written; empty for any other.
std::string OriginOf(const std::string& url);

class HttpClient;

// One request under way. Main thread only; destroying it ends the request without another word.
class HttpTransfer {
 public:
  ~HttpTransfer();
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // The response's head is here. Comes before `finished` unless the request failed.
  bool headers_ready() const { return headers_ready_; }
  // Nothing more will arrive; what is buffered can still be read.
  bool finished() const { return finished_; }
  // Once finished: PP_OK or what went wrong, as a result code below PP_OK_COMPLETIONPENDING.
  int32_t error() const { return error_; }
  const HttpResponse& response() const { return response_; }
  size_t buffered() const { return body_.size() - body_start_; }
  // Copies up to `size` bytes and forgets them. Returns how many.
  size_t Read(char* buffer, size_t size);

 private:
  friend class HttpClient;
  struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  using LineList = std::unique_ptr<curl_slist, ListDeleter>;

  HttpTransfer(HttpClient& client, HttpRequest request, std::function<void()> progress);
  bool SetUp(const HttpSettings& settings);
  bool SetUpRequest();
  bool SetLines(CURLoption option, const std::vector<std::string>& lines, LineList& list);
  void OnHeaderLine(std::string_view line);
  void OnHeadersEnd();
  size_t OnBody(std::string_view bytes);
  void OnDone(CURLcode code);

  static size_t HeaderThunk(char* data, size_t size, size_t count, void* self);
  static size_t BodyThunk(char* data, size_t size, size_t count, void* self);

  HttpClient& client_;
  const HttpRequest request_;
  const std::function<void()> progress_;
  LineList header_list_;  // both lists are borrowed by `easy_`
  LineList connect_list_;
  std::unique_ptr<CURL, EasyDeleter> easy_;
  HttpResponse response_;
  std::vector<std::pair<std::string, std::string>> headers_;
  std::string body_;
  size_t body_start_ = 0;
  bool redirected_ = false;
  bool paused_ = false;
  bool headers_ready_ = false;
  bool finished_ = false;
  int32_t error_ = 0;
};

// Works while the main loop waits. Main thread only.
class HttpClient final : public Poller {
 public:
  HttpClient();
  ~HttpClient() override;
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // Null when the request cannot even be tried (a URL that is none, a bad method). `progress` is
  // called whenever the transfer has something new; it may only post, not touch the transfer.
  // The client has to outlive the transfer.
  std::unique_ptr<HttpTransfer> Start(HttpRequest request, const HttpSettings& settings,
                                      std::function<void()> progress);
  // Works on the transfers alone, running no task, until `done` says yes or none is left.
  void BlockUntil(const std::function<bool()>& done);

  bool Active() const override { return active_ > 0; }
  int Poll(std::span<pollfd> fds, int timeout_ms) override;

 private:
  friend class HttpTransfer;
  void Perform();
  void Remove(CURL* easy);

  CURLM* multi_ = nullptr;  // owned
  int active_ = 0;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_HTTP_CLIENT_H_
