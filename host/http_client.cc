#include "host/http_client.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

namespace mpbp::host {
namespace {

void InitialiseOnce() {
  static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
  static_cast<void>(code);  // curl_multi_init fails when this did
}

std::set<int> OpenDescriptors() {
  std::set<int> fds;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    fds.insert(std::atoi(entry.path().filename().c_str()));
  }
  // The descriptor that listed the folder is closed by now, and its number is free for another.
  std::erase_if(fds, [](int fd) { return fcntl(fd, F_GETFD) < 0; });
  return fds;
}

// The library makes its wake-up pipe without close-on-exec; an engine that the module starts must
// not inherit it.
CURLM* InitMulti() {
  const std::set<int> before = OpenDescriptors();
  CURLM* multi = curl_multi_init();
  for (const int fd : OpenDescriptors()) {
    // A failure leaves one descriptor to inherit, which is no reason not to run.
    if (!before.contains(fd)) fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
  return multi;
}

}  // namespace

std::string OriginOf(const std::string& url) {
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), curl_url_cleanup);
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return "";
  std::string parts[3];
  const CURLUPart which[] = {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT};
  for (int i = 0; i < 3; ++i) {
    char* text = nullptr;
    if (curl_url_get(parsed.get(), which[i], &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return "";
    parts[i] = text;
    curl_free(text);
  }
  if (parts[0] != "http" && parts[0] != "https") return "";
  std::transform(parts[1].begin(), parts[1].end(), parts[1].begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return parts[0] + "://" + parts[1] + ":" + parts[2];
}

HttpClient::HttpClient() {
  InitialiseOnce();
  multi_ = InitMulti();
}

HttpClient::~HttpClient() { curl_multi_cleanup(multi_); }

std::unique_ptr<HttpTransfer> HttpClient::Start(HttpRequest request, const HttpSettings& settings,
                                                std::function<void()> progress) {
  if (OriginOf(request.url).empty()) return nullptr;
  std::unique_ptr<HttpTransfer> transfer(
      new HttpTransfer(*this, std::move(request), std::move(progress)));
  if (!transfer->SetUp(settings)) return nullptr;
  if (curl_multi_add_handle(multi_, transfer->easy_.get()) != CURLM_OK) return nullptr;
  ++active_;
  return transfer;
}

void HttpClient::Remove(CURL* easy) {
  curl_multi_remove_handle(multi_, easy);
  --active_;
}

void HttpClient::Perform() {
  int running = 0;
  curl_multi_perform(multi_, &running);
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    CURL* const easy = message->easy_handle;
    const CURLcode code = message->data.result;
    char* self = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &self);
    Remove(easy);
    reinterpret_cast<HttpTransfer*>(self)->OnDone(code);
  }
}

int HttpClient::Poll(std::span<pollfd> fds, int timeout_ms) {
  std::vector<curl_waitfd> waits;
  for (const pollfd& fd : fds) {
    // The bits are poll's own.
    waits.push_back({fd.fd, fd.events, 0});
  }
  int ready = 0;
  // Without a limit it would refuse to wait; the caller comes back anyway.
  const int wait_ms = timeout_ms < 0 ? 1000 : timeout_ms;
  if (curl_multi_poll(multi_, waits.data(), static_cast<unsigned>(waits.size()), wait_ms, &ready) !=
      CURLM_OK) {
    return -1;
  }
  for (size_t i = 0; i < fds.size(); ++i) fds[i].revents = waits[i].revents;
  Perform();
  return ready;
}

void HttpClient::BlockUntil(const std::function<bool()>& done) {
  while (!done() && Active()) Poll({}, 1000);
}

}  // namespace mpbp::host
