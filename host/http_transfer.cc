#include <fcntl.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "abi/browser_abi.h"
#include "host/http_client.h"

namespace mpbp::host {
namespace {

constexpr long kMaxRedirects = 20;
// Reading stops above the first mark and goes on below the second.
constexpr size_t kBufferHigh = 4 << 20;
constexpr size_t kBufferLow = 1 << 20;

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

curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

HttpTransfer::HttpTransfer(HttpClient& client, HttpRequest request, std::function<void()> progress)
    : client_(client),
      request_(std::move(request)),
      progress_(std::move(progress)),
      easy_(curl_easy_init()) {}

HttpTransfer::~HttpTransfer() {
  if (easy_ && !finished_) client_.Remove(easy_.get());
}

bool HttpTransfer::SetUp(const HttpSettings& settings) {
  CURL* const easy = easy_.get();
  const std::string no_proxy = NoProxyHosts();
  bool ok = easy != nullptr;
  const auto set = [&](CURLoption option, auto value) {
    ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  set(CURLOPT_PRIVATE, this);
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
  set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
  set(CURLOPT_HEADERFUNCTION, &HttpTransfer::HeaderThunk);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HttpTransfer::BodyThunk);
  set(CURLOPT_WRITEDATA, this);
  ok = ok && SetLines(CURLOPT_CONNECT_TO, settings.connect_to, connect_list_) && SetUpRequest();
  // Not in the client's care yet: the destructor has nothing to take out of it.
  if (!ok) easy_.reset();
  return ok;
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

size_t HttpTransfer::HeaderThunk(char* data, size_t size, size_t count, void* self) {
  static_cast<HttpTransfer*>(self)->OnHeaderLine({data, size * count});
  return size * count;
}

size_t HttpTransfer::BodyThunk(char* data, size_t size, size_t count, void* self) {
  return static_cast<HttpTransfer*>(self)->OnBody({data, size * count});
}

void HttpTransfer::OnHeaderLine(std::string_view line) {
  if (headers_ready_) return;  // a trailer
  if (line.starts_with("HTTP/")) {
    headers_.clear();
    response_ = {};
    redirected_ = false;
    const std::string_view status = Trim(line.substr(std::min(line.find(' '), line.size())));
    std::from_chars(status.data(), status.data() + status.size(), response_.status);
    const size_t blank = status.find(' ');
    if (blank != std::string_view::npos) response_.reason = Trim(status.substr(blank));
    return;
  }
  if (Trim(line).empty()) {
    OnHeadersEnd();
    return;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = Trim(line.substr(colon + 1));
  const bool redirects = response_.status >= 300 && response_.status < 400;
  if (redirects && SameName(name, "location") && !value.empty()) redirected_ = true;
  const auto same = std::find_if(headers_.begin(), headers_.end(),
                                 [&](const auto& header) { return SameName(header.first, name); });
  if (same == headers_.end()) {
    headers_.emplace_back(name, value);
  } else {
    same->second.append(", ").append(value);
  }
}

void HttpTransfer::OnHeadersEnd() {
  // One more response follows an interim one and a redirect that is being followed.
  if (response_.status < 200 || redirected_) return;
  for (const auto& [name, value] : headers_) {
    response_.headers.append(name).append(": ").append(value).append("\n");
  }
  const char* url = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
  response_.url = url != nullptr ? url : request_.url;
  headers_ready_ = true;
  progress_();
}

size_t HttpTransfer::OnBody(std::string_view bytes) {
  if (buffered() > kBufferHigh) {
    paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  body_.append(bytes);
  progress_();
  return bytes.size();
}

void HttpTransfer::OnDone(CURLcode code) {
  finished_ = true;
  error_ = ResultOf(code);
  if (error_ == PP_OK && !headers_ready_) error_ = PP_ERROR_FAILED;
  progress_();
}

size_t HttpTransfer::Read(char* buffer, size_t size) {
  const size_t count = std::min(size, buffered());
  std::copy_n(body_.data() + body_start_, count, buffer);
  body_start_ += count;
  if (body_start_ == body_.size()) {
    body_.clear();
    body_start_ = 0;
  } else if (body_start_ > kBufferLow) {
    body_.erase(0, body_start_);
    body_start_ = 0;
  }
  if (paused_ && !finished_ && buffered() < kBufferLow) {
    paused_ = false;
    curl_easy_pause(easy_.get(), CURLPAUSE_CONT);  // may deliver bytes at once
  }
  return count;
}

}  // namespace mpbp::host
