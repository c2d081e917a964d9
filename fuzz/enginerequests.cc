// Requests of the engine for the plug-in itself, HTTP and proxy look-ups, and their answers.
#include <algorithm>
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "httpmessages.h"
#include "jsontext.h"
#include "plugin/mpbp/common/proxylookup.h"

namespace mpbp::fuzz {
namespace {

std::string WriteRequest(const HttpRequest& request, uint32_t id) {
  Json::Value message(Json::arrayValue);
  message.append("httprequest");
  message.append(id);
  Json::Value target(Json::objectValue);
  target["verb"] = request.verb;
  target["proto"] = request.proto;
  target["host"] = request.host;
  target["port"] = request.port;
  target["path"] = request.path;
  message.append(target);
  message.append(request.headers);
  message.append(request.body);
  return WriteJson(message);
}

// What was read is what stands there; who writes it again has the same request.
void CheckHttpRequest(const Json::Value& message) {
  HttpRequest request;
  uint32_t id = 1;
  const bool complete = ReadHttpRequest(message, &request, &id);
  FUZZ_CHECK(complete || id == 0 || message.size() > 1);
  if (!complete) return;
  const Json::Value& target = ElementAt(message, 2);
  FUZZ_CHECK(AsString(MemberOf(target, "verb")) == request.verb);
  FUZZ_CHECK(AsString(MemberOf(target, "proto")) == request.proto);
  FUZZ_CHECK(AsString(MemberOf(target, "host")) == request.host);
  FUZZ_CHECK(AsString(MemberOf(target, "path")) == request.path);
  FUZZ_CHECK(AsString(ElementAt(message, 3)).value_or("") == request.headers);
  FUZZ_CHECK(AsString(ElementAt(message, 4)).value_or("") == request.body);

  const std::optional<Json::Value> again = ParseJson(WriteRequest(request, id));
  HttpRequest same;
  uint32_t same_id = 0;
  FUZZ_CHECK(again && ReadHttpRequest(*again, &same, &same_id));
  FUZZ_CHECK(same_id == id && same.port == request.port);
  FUZZ_CHECK(same.verb == request.verb && same.proto == request.proto);
  FUZZ_CHECK(same.host == request.host && same.path == request.path);
  FUZZ_CHECK(same.headers == request.headers && same.body == request.body);
}

// Whatever a server answers reaches the engine byte by byte.
void CheckHttpResponse(std::string_view input) {
  const std::vector<std::string> fields = SplitFields(input, 3);
  HttpResponse response;
  response.request_id = static_cast<uint32_t>(input.size());
  if (!fields[0].empty()) response.url = fields[0];
  if (!fields[1].empty()) response.headers = fields[1];
  response.body.WriteBytes(fields[2]);
  const std::string text = WriteHttpResponse(response);
  FUZZ_CHECK(text.size() <= 6 * input.size() + 100);

  const std::optional<Json::Value> message = ParseJson(text);
  FUZZ_CHECK(message && message->isArray());
  FUZZ_CHECK(ElementAt(*message, 1).asUInt() == response.request_id);
  FUZZ_CHECK(AsString(MemberOf(ElementAt(*message, 2), "url")) == response.url);
  std::vector<std::string> rest;
  for (unsigned i = 3; i < message->size(); ++i) rest.push_back(ElementAt(*message, i).asString());
  std::vector<std::string> expected = {fields[1], fields[2]};
  expected.erase(std::remove(expected.begin(), expected.end(), ""), expected.end());
  FUZZ_CHECK(rest == expected);
}

void CheckProxyRequest(const std::string& text, const std::optional<Json::Value>& message) {
  static const bool kSet = setenv("http_proxy", "http://proxy.example:3128", 1) == 0 &&
                           unsetenv("https_proxy") == 0 && unsetenv("HTTPS_PROXY") == 0 &&
                           unsetenv("all_proxy") == 0 && unsetenv("ALL_PROXY") == 0 &&
                           unsetenv("no_proxy") == 0 && unsetenv("NO_PROXY") == 0;
  FUZZ_CHECK(kSet);
  std::string reply = "untouched";
  if (!AnswerProxyRequest(text, &reply)) {
    FUZZ_CHECK(reply == "untouched");
    return;
  }
  FUZZ_CHECK(message && AsString(ElementAt(*message, 0)) == "getproxyforurl");
  const std::optional<Json::Value> answer = ParseJson(reply);
  FUZZ_CHECK(answer && answer->isArray() && answer->size() == 3);
  FUZZ_CHECK(AsString(ElementAt(*answer, 0)) == "proxyforurl");
  FUZZ_CHECK(ElementAt(*answer, 1) == ElementAt(*message, 1));
  const std::optional<std::string> proxy = AsString(ElementAt(*answer, 2));
  FUZZ_CHECK(proxy == "DIRECT" || proxy == "PROXY proxy.example:3128");
}

}  // namespace

void TestInput(std::string_view input) {
  const std::string text(input);
  const std::optional<Json::Value> message = ParseJson(text);
  if (message && message->isArray()) CheckHttpRequest(*message);
  CheckProxyRequest(text, message);
  CheckHttpResponse(input);
}

}  // namespace mpbp::fuzz
