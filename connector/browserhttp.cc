#include "connector/browserhttp.h"

#include <optional>
#include <utility>

#include "base/logging.h"
#include "base/utf8.h"
#include "connector/base64.h"
#include "jsontext.h"

namespace mpbp {
namespace {

// Fills in what the background tells of a response. False when it is not as it must be.
bool ReadResponse(const Json::Value& answer, HttpResponse* response) {
  const Json::Value& error = MemberOf(answer, "error");
  if (!error.isInt()) return false;
  response->error = error.asInt();
  if (response->error != HTTP_OK) return true;
  const std::optional<std::string> body = AsString(MemberOf(answer, "body"));
  const std::optional<std::string> bytes = body ? DecodeBase64(*body) : std::nullopt;
  const Json::Value& status = MemberOf(answer, "status");
  if (!bytes || !status.isInt()) return false;
  response->url = AsString(MemberOf(answer, "url"));
  response->body.WriteBytes(*bytes);
  const std::string status_line = "HTTP/1.1 " + std::to_string(status.asInt()) + " " +
                                  AsString(MemberOf(answer, "statusText")).value_or("");
  DescribeResponse(AsString(MemberOf(answer, "headers")).value_or(""), status_line, status.asInt(),
                   response);
  return true;
}

}  // namespace

BrowserHttp::BrowserHttp(BrowserWriter* writer)
    : writer_(writer), sender_([writer](std::string_view piece, bool more) {
        writer->WritePiece(kServiceLink, piece, more);
      }) {}

bool BrowserHttp::Start(HttpRequester* requester, const HttpRequest& request,
                        std::unique_ptr<HttpResponse>& response) {
  if (!IsSupportedVerb(request.verb)) return false;
  const uint32_t id = ++last_id_;
  pending_[id] = {requester, std::move(response)};
  Json::Value object(Json::objectValue);
  object["request"] = id;
  object["method"] = request.verb;
  object["url"] = RequestUrl(request);
  object["headers"] = request.headers;
  object["body"] = EncodeBase64(request.body);
  sender_.Send(ReplaceInvalidUtf8(WriteJson(object)));
  return true;
}

void BrowserHttp::CancelAll(const HttpRequester* requester) {
  for (auto each = pending_.begin(); each != pending_.end();) {
    if (each->second.requester != requester) {
      ++each;
      continue;
    }
    Json::Value object(Json::objectValue);
    object["cancel"] = each->first;
    sender_.Send(WriteJson(object));
    each = pending_.erase(each);
  }
}

bool BrowserHttp::TakePiece(std::string piece, bool more) {
  std::string text;
  const PieceReceiver::Result result = receiver_.Take(std::move(piece), more, &text);
  if (const size_t pieces = receiver_.TakeAcknowledgement()) {
    writer_->WriteAcknowledgement(kServiceLink, pieces);
  }
  if (result == PieceReceiver::Result::PARTIAL) return true;
  if (result == PieceReceiver::Result::WHOLE && HandleResponse(text)) return true;
  LOG(LS_ERROR) << "The browser's answer to an HTTP request cannot be read.";
  return false;
}

bool BrowserHttp::HandleResponse(const std::string& text) {
  const std::optional<Json::Value> answer = ParseJson(text);
  if (!answer) return false;
  const Json::Value& id = MemberOf(*answer, "response");
  if (!id.isUInt()) return false;
  const auto found = pending_.find(id.asUInt());
  if (found == pending_.end()) return true;  // cancelled
  Pending pending = std::move(found->second);
  pending_.erase(found);
  const bool read = ReadResponse(*answer, pending.response.get());
  if (!read) pending.response->error = HTTP_FAILED;
  pending.requester->OnHttpResponse(std::move(pending.response));
  return read;
}

}  // namespace mpbp
