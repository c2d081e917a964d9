// Where the connector's objects for the extension's background go.
#ifndef MPBP_CONNECTOR_BROWSERWRITER_H_
#define MPBP_CONNECTOR_BROWSERWRITER_H_

#include <json/value.h>

#include <cstdint>
#include <string_view>

namespace mpbp {

// A link's number. The background chooses those of pages; kServiceLink is its own.
using LinkNumber = uint32_t;
inline constexpr LinkNumber kServiceLink = 0;

class BrowserWriter {
 public:
  BrowserWriter(const BrowserWriter&) = delete;
  BrowserWriter& operator=(const BrowserWriter&) = delete;

  // Sends {"type", "link"} with what `object` holds besides.
  virtual void Write(const char* type, LinkNumber link, Json::Value object) = 0;
  // Sends a piece of a text.
  virtual void WritePiece(LinkNumber link, std::string_view piece, bool more) = 0;

  void WriteAcknowledgement(LinkNumber link, size_t pieces) {
    Json::Value object(Json::objectValue);
    object["pieces"] = static_cast<Json::UInt>(pieces);
    Write("ack", link, std::move(object));
  }
  // "refused" or "closed", with a code for programs and a sentence for people.
  void WriteFailure(const char* type, LinkNumber link, const char* code, const char* message) {
    Json::Value object(Json::objectValue);
    object["code"] = code;
    object["message"] = message;
    Write(type, link, std::move(object));
  }

 protected:
  BrowserWriter() = default;
  ~BrowserWriter() = default;
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_BROWSERWRITER_H_
