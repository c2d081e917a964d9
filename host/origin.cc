#include "host/origin.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace mpbp::host {

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

}  // namespace mpbp::host
