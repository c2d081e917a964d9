#include "httpmessages.h"

#include <cstdio>
#include <utility>

#include "base/logging.h"
#include "httpheaders.h"
#include "jsontext.h"

namespace mpbp {
namespace {

constexpr char kDefaultVersion[] = "HTTP/1.1";

bool ReadText(const Json::Value& value, std::string* text) {
  if (!value.isString()) return false;
  *text = value.asString();
  return true;
}

}  // namespace

std::string RequestUrl(const HttpRequest& request) {
  return request.proto + "://" + request.host + ":" + std::to_string(request.port) + request.path;
}

bool IsSupportedVerb(const std::string& verb) {
  if (verb == "POST" || verb == "GET") return true;
  LOG(LS_ERROR) << "HTTP verb not supported: " << verb;
  return false;
}

void DescribeResponse(const std::string& header_lines, std::optional<std::string> status_line,
                      int32_t status_code, HttpResponse* response) {
  const HttpHeaders headers = ParseHttpHeaders(header_lines);
  if (const auto found = headers.find("last-modified"); found != headers.end()) {
    response->lastmodified = ParseHttpDate(found->second);
  }
  std::string version = kDefaultVersion;
  if (const auto found = headers.find("version"); found != headers.end()) {
    version = found->second;
  } else {
    LOG(LS_INFO) << "HTTP response missing version info; assuming 1.1.";
  }
  if (!status_line) {
    char line[256];
    snprintf(line, sizeof(line), "%s %d %s", version.c_str(), status_code, "");
    status_line = line;
  }
  response->headers = *status_line + "\n" + header_lines;
}

bool ReadHttpRequest(const Json::Value& message, HttpRequest* request, uint32_t* request_id) {
  const Json::Value& id = ElementAt(message, 1);
  *request_id = id.isUInt() ? id.asUInt() : id.isInt() ? static_cast<uint32_t>(id.asInt()) : 0;
  const Json::Value& target = ElementAt(message, 2);
  const Json::Value& port = MemberOf(target, "port");
  const Json::Value& headers = ElementAt(message, 3);
  const Json::Value& body = ElementAt(message, 4);
  if (port.isInt()) request->port = port.asInt();
  return (id.isInt() || id.isUInt()) && ReadText(MemberOf(target, "verb"), &request->verb) &&
         ReadText(MemberOf(target, "proto"), &request->proto) &&
         ReadText(MemberOf(target, "host"), &request->host) && port.isInt() &&
         ReadText(MemberOf(target, "path"), &request->path) &&
         (headers.isNull() || ReadText(headers, &request->headers)) &&
         (body.isNull() || ReadText(body, &request->body));
}

std::string WriteHttpResponse(const HttpResponse& response) {
  Json::Value status(Json::objectValue);
  status["error"] = static_cast<Json::UInt>(response.error);
  status["lastmodified"] = static_cast<Json::UInt>(response.lastmodified);
  if (response.url) status["url"] = *response.url;
  Json::Value message(Json::arrayValue);
  message.append("httpresponse");
  message.append(static_cast<Json::UInt>(response.request_id));
  message.append(std::move(status));
  if (response.headers && !response.headers->empty()) message.append(*response.headers);
  if (response.body.Length() > 0) {
    const char* const body = response.body.Data();
    message.append(Json::Value(body, body + response.body.Length()));
  }
  return WriteJson(message);
}

}  // namespace mpbp
