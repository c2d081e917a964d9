#include "logutility.h"

#include <algorithm>
#include <ctime>

#include "base/logging.h"
#include "base/stringutils.h"

namespace mpbp {
namespace {

constexpr std::string_view kSecretMember = "\"kp\":";
constexpr std::string_view kRemotingKinds[] = {"remoting-start", "remoting-send", "remoting-data",
                                               "remoting-input"};

// In one pass: a page may send a text of nothing but such members.
std::string RedactSecrets(std::string_view text) {
  std::string result;
  size_t pos = 0;
  for (;;) {
    const size_t hit = FindWord(text, kSecretMember, pos);
    // After the member comes the value's opening quote.
    if (hit == std::string_view::npos || hit + kSecretMember.size() >= text.size()) break;
    const size_t value = hit + kSecretMember.size() + 1;
    result.append(text.substr(pos, value - pos)).append("REDACTED");
    pos = std::min(text.find('"', value), text.size());
  }
  return result.append(text.substr(pos));
}

}  // namespace

std::string RedactMessage(std::string_view text) {
  std::string result = RedactSecrets(text);
  const size_t open = result.find('"');
  if (open == std::string::npos) return result;
  const size_t close = result.find('"', open + 1);
  if (close == std::string::npos) return result;
  const std::string_view kind = std::string_view(result).substr(open + 1, close - open - 1);
  if (std::find(std::begin(kRemotingKinds), std::end(kRemotingKinds), kind) ==
      std::end(kRemotingKinds)) {
    return result;
  }
  result.resize(close + 1);
  return result.append(", ...REDACTED...]");
}

std::string ReplaceTimestamp(std::string_view text) {
  const time_t start = LogMessage::WallClockStartTime();
  tm local{};
  char stamp[32];
  if (!localtime_r(&start, &local) ||
      strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &local) == 0) {
    return std::string(text);
  }
  return ReplaceAll(text, "%TIMESTAMP%", stamp);
}

bool AddLogToMultipart(const std::string& name, const std::string& content_type,
                       std::string content, MultipartStream* multipart) {
  const std::string disposition = "form-data; name=\"" + name + "\"; filename=\"" + name + "\"";
  if (multipart->AddPart(std::move(content), disposition, content_type)) return true;
  LOG(LS_ERROR) << "Failed to add log to multipart";
  return false;
}

bool AddParameterToMultipart(const std::string& key, const std::string& value,
                             MultipartStream* multipart) {
  if (multipart->AddPart(value, "form-data; name=\"" + key + "\"", "")) return true;
  LOG(LS_ERROR) << "Failed to add parameter:" << key << "=" << value;
  return false;
}

}  // namespace mpbp
