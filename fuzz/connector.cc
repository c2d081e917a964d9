// What comes on the connector's standard input. The input's lines become native messages, or, with
// a first byte of '!', stand as the bytes that they are.
#include "connector/connector.h"

#include <cstdint>

#include "base/physicalsocketserver.h"
#include "base/threadmanager.h"
#include "connector/nativemessages.h"
#include "fuzz/choices.h"
#include "fuzz/fuzz.h"
#include "jsontext.h"

namespace mpbp::fuzz {
namespace {

// A channel that finds no engine and starts none.
class LonelyChannel final : public ClientChannel {
 public:
  LonelyChannel(ClientChannelDelegate* delegate, std::string url)
      : ClientChannel(delegate, std::move(url)) {}

 protected:
  bool ConnectSocket(int*) override { return false; }
  bool LaunchEngineProcess(int*) override { return true; }
  void PostDelayed(int32_t, uint32_t) override {}
};

std::shared_ptr<ClientChannel> MakeChannel(ClientChannelDelegate* delegate,
                                           const std::string& url) {
  return url.empty() ? nullptr : std::make_shared<LonelyChannel>(delegate, url);
}

void WriteLine(std::string_view line, ByteBuffer& bytes) {
  // A page's kill would look for engines.
  if (line.find("kill") != std::string_view::npos || line.find('\\') != std::string_view::npos)
    return;
  if (line.starts_with('!')) {
    bytes.WriteBytes(line.substr(1));
  } else {
    WriteNativeMessage(line, bytes);
  }
}

}  // namespace

// Whatever comes, every answer is a frame of JSON with a type that a browser takes.
void TestInput(std::string_view input) {
  static PhysicalSocketServer server;
  static Thread thread(&server);
  ThreadManager::Instance().SetCurrentThread(&thread);
  Connector connector(MakeChannel);
  ByteBuffer bytes({}, ByteBuffer::kDefaultCapacity, ByteOrder::ORDER_HOST);
  while (!input.empty()) {
    const size_t end = std::min(input.find('\n'), input.size());
    WriteLine(input.substr(0, end), bytes);
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  Choices choices({bytes.Data(), bytes.Length()});
  while (bytes.Length() > 0) {
    const size_t count = choices.Between(1, bytes.Length());
    const bool goes_on = connector.TakeInput({bytes.Data(), count});
    FUZZ_CHECK(bytes.Consume(count));
    thread.ProcessMessages(0);
    if (!goes_on) break;
  }
  FUZZ_CHECK(connector.links() <= Connector::kMaxLinks);
  std::string json;
  while (ReadNativeMessage(connector.output(), &json) == NativeFrame::COMPLETE) {
    const auto object = ParseJson(json);
    FUZZ_CHECK(object && AsString(MemberOf(*object, "type")));
  }
  FUZZ_CHECK(connector.output().Length() == 0);
}

}  // namespace mpbp::fuzz
