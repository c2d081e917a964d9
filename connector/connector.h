// The connector: what it says and hears on its standard streams, and the links of its pages.
//
// Objects come in native messages, with a "type" and mostly a "link":
//
//   in   hello {version}          first; answered by the connector's own
//        open {origin}            a page; the background chooses the number, anew for each page
//        start                    the page wants its link; does nothing on one that runs
//        text {piece, more}, ack {pieces}      see textpieces.h
//        close                    the page is gone; not answered
//   out  hello {version}, text, ack
//        refused {code, message}  a text of the page was not accepted; the link goes on
//        closed {code, message}   there is no such link, or no more
//
// What the background would never say ends the program; what may be late or meant for a link that
// is gone gets an answer.
#ifndef MPBP_CONNECTOR_CONNECTOR_H_
#define MPBP_CONNECTOR_CONNECTOR_H_

#include <map>
#include <memory>
#include <string_view>

#include "base/bytebuffer.h"
#include "base/signal.h"
#include "connector/browserhttp.h"
#include "connector/browserwriter.h"
#include "connector/pagelink.h"

namespace mpbp {

// On one thread, which is the runtime's current one.
class Connector final : public BrowserWriter {
 public:
  // Each has a socket, and select watches no more than 1024 descriptors.
  static constexpr size_t kMaxLinks = 900;

  explicit Connector(PageLink::ChannelFactory factory);

  // Bytes of standard input. False, with an error line, when they are not the background's: the
  // program ends then.
  [[nodiscard]] bool TakeInput(std::string_view bytes);
  // What waits for standard output; who writes it consumes it.
  ByteBuffer& output() { return output_; }
  // Raised when something was added to the output; its handler may not call back.
  Signal<> SignalOutput;

  size_t links() const { return links_.size(); }

  // BrowserWriter.
  void Write(const char* type, LinkNumber link, Json::Value object) override;
  void WritePiece(LinkNumber link, std::string_view piece, bool more) override;

 private:
  [[nodiscard]] bool HandleObject(const std::string& json);
  [[nodiscard]] bool HandleHello(const Json::Value& object);
  [[nodiscard]] bool HandleService(const std::string& type, const Json::Value& object);
  [[nodiscard]] bool HandleOpen(LinkNumber number, const Json::Value& object);
  [[nodiscard]] bool HandleLink(const std::string& type, LinkNumber number, PageLink& link,
                                const Json::Value& object);
  void Close(LinkNumber number, const char* code, const char* message);
  void WriteObject(std::string_view json);

  const PageLink::ChannelFactory factory_;
  ByteBuffer input_;
  ByteBuffer output_;
  bool greeted_ = false;
  BrowserHttp http_;
  std::map<LinkNumber, std::unique_ptr<PageLink>> links_;  // go before what they use
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_CONNECTOR_H_
