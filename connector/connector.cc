#include "connector/connector.h"

#include <optional>
#include <string>
#include <utility>

#include "base/logging.h"
#include "connector/nativemessages.h"
#include "jsontext.h"
#include "plugin/mpbp/common/version.h"

namespace mpbp {
namespace {

constexpr char kClosed[] = "closed";
constexpr char kProtocolError[] = "protocol-error";

bool Complain(const char* what) {
  LOG(LS_ERROR) << "The browser's side is broken: " << what;
  return false;
}

// The members of "text" and "ack"; nothing when they are not as they must be.
struct Piece {
  std::string text;
  bool more = false;
};

std::optional<Piece> ReadPiece(const Json::Value& object) {
  std::optional<std::string> text = AsString(MemberOf(object, "piece"));
  const Json::Value& more = MemberOf(object, "more");
  if (!text || !(more.isBool() || more.isNull())) return std::nullopt;
  return Piece{std::move(*text), more.isBool() && more.asBool()};
}

std::optional<size_t> ReadPieces(const Json::Value& object) {
  const Json::Value& pieces = MemberOf(object, "pieces");
  if (!pieces.isUInt()) return std::nullopt;
  return pieces.asUInt();
}

}  // namespace

Connector::Connector(PageLink::ChannelFactory factory)
    : factory_(std::move(factory)),
      input_({}, ByteBuffer::kDefaultCapacity, ByteOrder::ORDER_HOST),
      output_({}, ByteBuffer::kDefaultCapacity, ByteOrder::ORDER_HOST),
      http_(this) {}

bool Connector::TakeInput(std::string_view bytes) {
  input_.WriteBytes(bytes);
  std::string json;
  for (;;) {
    switch (ReadNativeMessage(input_, &json)) {
      case NativeFrame::PARTIAL:
        input_.ReleaseIfEmpty();
        return true;
      case NativeFrame::BROKEN:
        return Complain("a message of a length that none has");
      case NativeFrame::COMPLETE:
        if (!HandleObject(json)) return false;
    }
  }
}

bool Connector::HandleObject(const std::string& json) {
  const std::optional<Json::Value> object = ParseJson(json);
  const std::optional<std::string> type =
      object ? AsString(MemberOf(*object, "type")) : std::nullopt;
  if (!type) return Complain("a message that is no object with a type");
  if (type == "hello") return HandleHello(*object);
  if (!greeted_) return Complain("no hello");
  const Json::Value& link = MemberOf(*object, "link");
  if (!link.isUInt()) return Complain("a message without a link");
  const LinkNumber number = link.asUInt();
  if (number == kServiceLink) return HandleService(*type, *object);
  if (type == "open") return HandleOpen(number, *object);
  const auto found = links_.find(number);
  if (found != links_.end()) return HandleLink(*type, number, *found->second, *object);
  LOG(LS_WARNING) << "A message for link " << number << ", which is not there: " << *type;
  if (type != "close") WriteFailure(kClosed, number, "unknown-link", "There is no such link.");
  return true;
}

bool Connector::HandleHello(const Json::Value& object) {
  if (greeted_) return Complain("a second hello");
  greeted_ = true;
  const std::string version = AsString(MemberOf(object, "version")).value_or("");
  if (version != PluginVersion()) {
    LOG(LS_WARNING) << "The extension is of version " << version << ", the connector of "
                    << PluginVersion();
  }
  Json::Value hello(Json::objectValue);
  hello["type"] = "hello";
  hello["version"] = PluginVersion();
  WriteObject(WriteJson(hello));
  return true;
}

bool Connector::HandleService(const std::string& type, const Json::Value& object) {
  if (type == "text") {
    std::optional<Piece> piece = ReadPiece(object);
    return piece ? http_.TakePiece(std::move(piece->text), piece->more)
                 : Complain("a text without a piece");
  }
  const std::optional<size_t> pieces = ReadPieces(object);
  if (type == "ack" && pieces && http_.Acknowledge(*pieces)) return true;
  return Complain("an unknown message for the service link");
}

bool Connector::HandleOpen(LinkNumber number, const Json::Value& object) {
  const std::optional<std::string> origin = AsString(MemberOf(object, "origin"));
  if (!origin) return Complain("a page without an origin");
  if (links_.contains(number)) {
    LOG(LS_ERROR) << "Link " << number << " is opened twice.";
    Close(number, kProtocolError, "The link was opened twice.");
    return true;
  }
  if (links_.size() >= kMaxLinks) {
    LOG(LS_ERROR) << "Too many links: refusing one more.";
    WriteFailure(kClosed, number, "too-many-links", "Too many pages use the plug-in: close some.");
    return true;
  }
  auto link = std::make_unique<PageLink>(number, this, &http_);
  if (link->Open(*origin, factory_)) {
    links_[number] = std::move(link);
  } else {
    WriteFailure(kClosed, number, "page-refused",
                 "Pages of this address are not served: ask who runs this machine whether they "
                 "should be.");
  }
  return true;
}

bool Connector::HandleLink(const std::string& type, LinkNumber number, PageLink& link,
                           const Json::Value& object) {
  if (type == "close") {
    links_.erase(number);
    return true;
  }
  if (type == "start") {
    link.Start();
    return true;
  }
  if (type == "text") {
    if (std::optional<Piece> piece = ReadPiece(object)) {
      link.TakePiece(std::move(piece->text), piece->more);
      return true;
    }
  } else if (type == "ack") {
    const std::optional<size_t> pieces = ReadPieces(object);
    if (pieces && link.Acknowledge(*pieces)) return true;
  }
  LOG(LS_ERROR) << "A broken message for link " << number << ": " << type;
  Close(number, kProtocolError, "The connector was told something that it does not know.");
  return true;
}

void Connector::Close(LinkNumber number, const char* code, const char* message) {
  links_.erase(number);
  WriteFailure(kClosed, number, code, message);
}

void Connector::Write(const char* type, LinkNumber link, Json::Value object) {
  object["type"] = type;
  object["link"] = link;
  WriteObject(WriteJson(object));
}

void Connector::WritePiece(LinkNumber link, std::string_view piece, bool more) {
  Json::Value object(Json::objectValue);
  object["piece"] = Json::Value(piece.data(), piece.data() + piece.size());
  object["more"] = more;
  Write("text", link, std::move(object));
}

void Connector::WriteObject(std::string_view json) {
  WriteNativeMessage(json, output_);
  SignalOutput();
}

}  // namespace mpbp
