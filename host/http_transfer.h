// HTTP as the browser's network stack does it: redirects followed, TLS checked, bodies held back
// while nobody reads them.
#ifndef MPBP_HOST_HTTP_TRANSFER_H_
#define MPBP_HOST_HTTP_TRANSFER_H_

#include <curl/curl.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

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

// One request, on a thread of its own. The functions are the main thread's.
class HttpTransfer {
 public:
  // Null when the request cannot even be tried (a URL that is none, a bad method). `progress` is
  // called on the request's thread whenever there is something new; it may only post.
  [[nodiscard]] static std::unique_ptr<HttpTransfer> Start(HttpRequest request,
                                                           const HttpSettings& settings,
                                                           std::function<void()> progress);
  // Ends the request without another word, and its thread.
  ~HttpTransfer();
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // PP_OK when the response's head is here, what went wrong when it never will be, as a result code
  // below PP_OK_COMPLETIONPENDING; nothing while neither is known.
  std::optional<int32_t> opened() const;
  // Once `opened` is PP_OK.
  const HttpResponse& response() const { return response_; }
  // Copies up to `size` bytes, at least one, and forgets them. Returns how many; at the end of the
  // body PP_OK or what went wrong; nothing while the network has no more.
  std::optional<int32_t> Read(char* buffer, int32_t size);

  // Block until `opened`, or `Read`, has a result.
  void AwaitHeaders();
  void AwaitBody();

 private:
  struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  using LineList = std::unique_ptr<curl_slist, ListDeleter>;

  HttpTransfer(HttpRequest request, std::function<void()> progress);
  bool SetUp(const HttpSettings& settings);
  bool SetUpRequest();
  bool SetUpCallbacks();
  bool SetLines(CURLoption option, const std::vector<std::string>& lines, LineList& list);

  // On the request's thread.
  void Run();
  void OnHeaderLine(std::string_view line);
  bool OnBody(std::string_view bytes);
  curl_socket_t OpenSocket(const curl_sockaddr& address);
  int CloseSocket(curl_socket_t fd);
  bool IsStopped() const;
  // Makes the change under the lock, wakes who waits for it and calls `progress_`.
  void Change(const std::function<void()>& change);

  const HttpRequest request_;
  const std::function<void()> progress_;
  LineList header_list_;  // both lists are borrowed by `easy_`
  LineList connect_list_;

  std::string reason_;     // the request's thread only
  HttpResponse response_;  // written before `headers_ready_` is set, and not any more

  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::string body_;
  bool headers_ready_ = false;
  std::optional<int32_t> result_;  // when nothing more will arrive
  bool stopped_ = false;
  std::set<curl_socket_t> sockets_;  // owned by `easy_`

  std::unique_ptr<CURL, EasyDeleter> easy_;
  std::thread thread_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_HTTP_TRANSFER_H_
