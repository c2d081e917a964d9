#include "httpmessages.h"

#include "jsontext.h"

namespace mpbp {
namespace {

bool ReadText(const Json::Value& value, std::string* text) {
  if (!value.isString()) return false;
  *text = value.asString();
  return true;
}

}  // namespace

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
