#include "host/http_transfer.h"

#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "abi/browser_abi.h"
#include "host/origin.h"

namespace mpbp::host {
namespace {

constexpr long kMaxRedirects = 20;
// The network waits for the reader when it is so far ahead.
constexpr size_t kMaxBuffered = 64 << 10;

int32_t ResultOf(CURLcode code) {
  switch (code) {
    case CURLE_OK:
      return PP_OK;
    case CURLE_COULDNT_CONNECT:
      return PP_ERROR_CONNECTION_REFUSED;
    case CURLE_COULDNT_RESOLVE_HOST:
      return PP_ERROR_NAME_NOT_RESOLVED;
    case CURLE_OPERATION_TIMEDOUT:
      return PP_ERROR_CONNECTION_TIMEDOUT;
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
      return PP_ERROR_CONNECTION_FAILED;
    default:
      return PP_ERROR_FAILED;
  }
}

std::string_view Trim(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool IsToken(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return c > 0x20 && c < 0x7F; });
}

// A page on this machine is reached directly, whatever proxy the environment names.
std::string NoProxyHosts() {
  const char* more = std::getenv("no_proxy");
  return std::string("localhost,127.0.0.1,::1") + (more != nullptr ? "," + std::string(more) : "");
}

// What follows the number in "HTTP/1.1 404 Not Found".
std::string ReasonOf(std::string_view status_line) {
  const std::string_view status =
      Trim(status_line.substr(std::min(status_line.find(' '), status_line.size())));
  return std::string(Trim(status.substr(std::min(status.find(' '), status.size()))));
}

// The header lines of the last response; repeated ones joined with ", ".
std::string JoinHeaders(CURL* easy) {
  std::vector<std::pair<std::string, std::string>> headers;
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(easy, CURLH_HEADER, -1, header)) != nullptr) {
    const auto same = std::find_if(headers.begin(), headers.end(), [&](const auto& earlier) {
      return SameName(earlier.first, header->name);
    });
    if (same == headers.end()) {
      headers.emplace_back(header->name, Trim(header->value));
    } else {
      same->second.append(", ").append(Trim(header->value));
    }
  }
  std::string lines;
  for (const auto& [name, value] : headers) {
    lines.append(name).append(": ").append(value).append("\n");
  }
  return lines;
}

int32_t StatusOf(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int32_t>(status);
}

// One more response follows an interim one and a redirect, which is followed.
bool IsLastResponse(CURL* easy) {
  const int32_t status = StatusOf(easy);
  if (status < 300 || status >= 400) return status >= 200;
  curl_header* location = nullptr;
  return curl_easy_header(easy, "Location", 0, CURLH_HEADER, -1, &location) != CURLHE_OK ||
         Trim(location->value).empty();
}

}  // namespace

std::unique_ptr<HttpTransfer> HttpTransfer::Start(HttpRequest request, const HttpSettings& settings,
                                                  std::function<void()> progress) {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (initialised != CURLE_OK || OriginOf(request.url).empty()) return nullptr;
  std::unique_ptr<HttpTransfer> transfer(new HttpTransfer(std::move(request), std::move(progress)));
  if (!transfer->SetUp(settings)) return nullptr;
  try {
    transfer->thread_ = std::thread(&HttpTransfer::Run, transfer.get());
  } catch (const std::system_error&) {
    return nullptr;  // the system has no thread to spare
  }
  return transfer;
}

HttpTransfer::HttpTransfer(HttpRequest request, std::function<void()> progress)
    : request_(std::move(request)), progress_(std::move(progress)), easy_(curl_easy_init()) {}

HttpTransfer::~HttpTransfer() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    // The library looks once a second whether it is to stop, and at once when a socket has news.
    for (const curl_socket_t fd : sockets_) shutdown(fd, SHUT_RDWR);
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool HttpTransfer::SetUp(const HttpSettings& settings) {
  CURL* const easy = easy_.get();
  const std::string no_proxy = NoProxyHosts();
  bool ok = easy != nullptr;
  const auto set = [&](CURLoption option, auto value) {
    ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_URL, request_.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 1L);
  set(CURLOPT_MAXREDIRS, kMaxRedirects);
  set(CURLOPT_ACCEPT_ENCODING, "");
  set(CURLOPT_USERAGENT, "Mozilla/5.0 (X11; Linux x86_64) mpbp-host");
  set(CURLOPT_NOPROXY, no_proxy.c_str());
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings.connect_timeout_ms));
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(settings.timeout_ms));
  if (!settings.ca_file.empty()) set(CURLOPT_CAINFO, settings.ca_file.c_str());
  return ok && SetLines(CURLOPT_CONNECT_TO, settings.connect_to, connect_list_) && SetUpRequest() &&
         SetUpCallbacks();
}

bool HttpTransfer::SetUpRequest() {
  CURL* const easy = easy_.get();
  if (!IsToken(request_.method)) return false;
  const bool post = request_.method == "POST";
  // POST and GET by their own options: only then does a redirect turn one into the other.
  if (post || !request_.body.empty()) {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request_.body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request_.body.data());
  }
  if (request_.method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else if (!post && (request_.method != "GET" || !request_.body.empty())) {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
  }
  std::vector<std::string> lines{"Expect:"};
  bool has_type = false;
  for (const std::string& header : request_.headers) {
    const size_t colon = header.find(':');
    if (colon == std::string::npos || header.find('\0') != std::string::npos) continue;
    has_type = has_type || SameName(Trim(header.substr(0, colon)), "content-type");
    const bool empty = Trim(std::string_view(header).substr(colon + 1)).empty();
    // A bare "Name:" would take the header out instead of sending it empty.
    lines.push_back(empty ? header.substr(0, colon) + ";" : header);
  }
  if (!has_type) lines.push_back("Content-Type:");
  return SetLines(CURLOPT_HTTPHEADER, lines, header_list_);
}

bool HttpTransfer::SetLines(CURLoption option, const std::vector<std::string>& lines,
                            LineList& list) {
  for (const std::string& line : lines) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) return false;
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return curl_easy_setopt(easy_.get(), option, list.get()) == CURLE_OK;
}

bool HttpTransfer::SetUpCallbacks() {
  using Self = HttpTransfer;
  bool ok = true;
  const auto set = [&](CURLoption function, auto callback, CURLoption data) {
    ok = ok && curl_easy_setopt(easy_.get(), function, callback) == CURLE_OK &&
         curl_easy_setopt(easy_.get(), data, this) == CURLE_OK;
  };
  set(
      CURLOPT_HEADERFUNCTION,
      +[](char* data, size_t size, size_t count, void* self) {
        static_cast<Self*>(self)->OnHeaderLine({data, size * count});
        return size * count;
      },
      CURLOPT_HEADERDATA);
  set(
      CURLOPT_WRITEFUNCTION,
      +[](char* data, size_t size, size_t count, void* self) {
        return static_cast<Self*>(self)->OnBody({data, size * count}) ? size * count : 0;
      },
      CURLOPT_WRITEDATA);
  set(
      CURLOPT_XFERINFOFUNCTION,
      +[](void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<Self*>(self)->IsStopped() ? 1 : 0;
      },
      CURLOPT_XFERINFODATA);
  set(
      CURLOPT_OPENSOCKETFUNCTION,
      +[](void* self, curlsocktype, curl_sockaddr* address) {
        return static_cast<Self*>(self)->OpenSocket(*address);
      },
      CURLOPT_OPENSOCKETDATA);
  set(
      CURLOPT_CLOSESOCKETFUNCTION,
      +[](void* self, curl_socket_t fd) { return static_cast<Self*>(self)->CloseSocket(fd); },
      CURLOPT_CLOSESOCKETDATA);
  return ok && curl_easy_setopt(easy_.get(), CURLOPT_NOPROGRESS, 0L) == CURLE_OK;
}

void HttpTransfer::Run() {
  // The process's signals are for its main thread; a broken connection's is for nobody.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  const int32_t result = ResultOf(curl_easy_perform(easy_.get()));
  Change([&] { result_ = result == PP_OK && !headers_ready_ ? PP_ERROR_FAILED : result; });
}

void HttpTransfer::Change(const std::function<void()>& change) {
  {
    const std::lock_guard lock(mutex_);
    change();
  }
  changed_.notify_all();
  progress_();
}

void HttpTransfer::OnHeaderLine(std::string_view line) {
  if (opened()) return;  // a trailer
  if (line.starts_with("HTTP/")) reason_ = ReasonOf(line);
  if (!Trim(line).empty() || !IsLastResponse(easy_.get())) return;
  const char* url = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
  response_ = {url != nullptr ? url : request_.url, StatusOf(easy_.get()), reason_,
               JoinHeaders(easy_.get())};
  Change([&] { headers_ready_ = true; });
}

bool HttpTransfer::OnBody(std::string_view bytes) {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || body_.size() < kMaxBuffered; });
    if (stopped_) return false;
  }
  Change([&] { body_.append(bytes); });
  return true;
}

curl_socket_t HttpTransfer::OpenSocket(const curl_sockaddr& address) {
  const std::lock_guard lock(mutex_);
  if (stopped_) return CURL_SOCKET_BAD;
  const int fd = socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (fd >= 0) sockets_.insert(fd);
  return fd;
}

int HttpTransfer::CloseSocket(curl_socket_t fd) {
  const std::lock_guard lock(mutex_);
  sockets_.erase(fd);
  return close(fd);
}

bool HttpTransfer::IsStopped() const {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

std::optional<int32_t> HttpTransfer::opened() const {
  const std::lock_guard lock(mutex_);
  return headers_ready_ ? PP_OK : result_;
}

std::optional<int32_t> HttpTransfer::Read(char* buffer, int32_t size) {
  const std::lock_guard lock(mutex_);
  if (body_.empty()) return result_;
  const size_t count = body_.copy(buffer, static_cast<size_t>(size));
  body_.erase(0, count);
  changed_.notify_all();
  return static_cast<int32_t>(count);
}

void HttpTransfer::AwaitHeaders() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return headers_ready_ || result_; });
}

void HttpTransfer::AwaitBody() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return !body_.empty() || result_; });
}

}  // namespace mpbp::host
