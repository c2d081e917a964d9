// The upload of the plug-in's own log, on a page's request.

#include "base/logging.h"
#include "deployment.h"
#include "engineprocesses.h"
#include "jsontext.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "plugin/mpbp/common/version.h"
#include "plugin/pluginutils.h"

namespace mpbp {
namespace {

constexpr uint32_t kUploadRequestId = 100;
constexpr size_t kMaxUploadBytes = 10'000'000 - 100'000;
constexpr size_t kCopyBlockSize = 4096;

// The whole form in memory; nothing when it cannot be read.
std::optional<std::string> ReadForm(MultipartStream& form) {
  std::string body;
  char block[kCopyBlockSize];
  for (;;) {
    size_t read = 0;
    const StreamResult result = form.Read(block, sizeof(block), &read, nullptr);
    if (result == StreamResult::SR_EOS) return body;
    if (result != StreamResult::SR_SUCCESS) return std::nullopt;
    body.append(block, read);
  }
}

}  // namespace

std::shared_ptr<MemoryLog> ClientChannel::LogStore() { return PluginLogStore(); }

bool ClientChannel::HandleUploadBrowserPluginLog(const Json::Value& message) {
  const std::string text = WriteJson(message);
  LOG(LS_INFO) << this << ": UploadBrowserPluginLog message with qw info:" << text;
  const std::optional<std::string> jid = AsString(MemberOf(ElementAt(message, 2), "jid"));
  if (!jid) {
    LOG(LS_ERROR) << this << ": Malformed upload browser plugin log request: " << text;
    return false;
  }
  LogEngineProcesses();
  UploadLog(*jid);
  return true;
}

void ClientChannel::UploadLog(const std::string& jid) {
  MultipartStream form(kLogFormBoundary);
  if (!BuildLogForm(&form, jid)) return;
  std::optional<std::string> body = ReadForm(form);
  if (!body) {
    LOG(LS_ERROR) << this << ": Failed to read multipart to memory";
    return;
  }
  HttpRequest request;
  request.verb = "POST";
  request.proto = "HTTPS";
  request.host = kCrashReportHost;
  request.port = 443;
  request.path = "/cr/report";
  request.headers = "Content-Type: " + form.GetContentType() + "\r\n\r\n";
  request.body = std::move(*body);
  auto response = std::make_unique<HttpResponse>();
  response->request_id = kUploadRequestId;
  StartHttpRequest(request, std::move(response));
}

bool ClientChannel::BuildLogForm(MultipartStream* form, const std::string& jid) {
  const std::shared_ptr<MemoryLog> store = LogStore();
  if (!store) {
    LOG(LS_ERROR) << this
                  << ": Unable to upload browser plugin log, as the log data has already been "
                     "cleared.";
    return false;
  }
  if (!AddParameterToMultipart("prod", "Murmel_Parl_Plugin_Linux", form) ||
      !AddParameterToMultipart("ver", PluginVersion() + "-browserpluginlogs", form) ||
      !AddParameterToMultipart("email", jid, form) ||
      !AddParameterToMultipart("type", "log", form)) {
    LOG(LS_ERROR) << this << ": Error in creating post parameters.";
    return false;
  }
  const uint64_t size = store->size();
  if (size > kMaxUploadBytes) {
    LOG(LS_INFO) << this << ": Log size exceeds maximum upload size."
                 << "Log size is " << size;
  }
  if (!AddLogToMultipart("browserpluginlog.log", "text/plain", store->Tail(kMaxUploadBytes),
                         form)) {
    LOG(LS_ERROR) << this << ": Failed to add log to multipart";
    return false;
  }
  form->EndParts();
  return true;
}

}  // namespace mpbp
