// An HTTP server on the loopback address for tests: real sockets, answers made by the test.
#ifndef MPBP_TESTS_SUPPORT_HTTP_SERVER_H_
#define MPBP_TESTS_SUPPORT_HTTP_SERVER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace mpbp::test {

struct HttpServerRequest {
  std::string method;
  std::string path;
  std::string head;  // the header lines, each ended by "\r\n"
  std::string body;
};

struct HttpServerResponse {
  std::string body;
  std::string status = "200 OK";  // empty: close without a byte
  std::string headers;            // lines ended by "\r\n"; none: the length
  bool hang = false;              // keep silent until the client or Stop ends it
};

HttpServerResponse RedirectTo(const std::string& url, int status = 302);

// Listens from construction to Stop on a port that was free. One request for each connection.
class HttpServer {
 public:
  // Runs on the server's threads, several at once.
  using Handler = std::function<HttpServerResponse(const HttpServerRequest&)>;

  explicit HttpServer(Handler handler);
  ~HttpServer() { Stop(); }
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // 0 when it could not listen.
  uint16_t port() const { return port_; }
  // "http://127.0.0.1:PORT" and `path`.
  std::string Url(const std::string& path) const;
  // What came in so far, in order of completion. Any thread.
  std::vector<HttpServerRequest> requests() const;
  // Ends every connection and joins every thread. Twice is harmless.
  void Stop();

 private:
  void Accept();
  void Serve(int fd);

  const Handler handler_;
  int listen_fd_ = -1;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread accept_thread_;
  mutable std::mutex mutex_;
  std::list<std::pair<int, std::thread>> connections_;
  std::vector<HttpServerRequest> requests_;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_HTTP_SERVER_H_
