// line-client --url URL: links to the engine as a page of that address would, sends each line of
// its standard input, and prints each text for the page on a line of its own. Ends with its input.
// The whole of what a host of the channel needs that is no browser.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "base/filesystem.h"
#include "base/logging.h"
#include "base/physicalsocketserver.h"
#include "base/threadmanager.h"
#include "plugin/allowlist.h"
#include "plugin/mpbp/common/clientchannel.h"
#include "plugin/mpbp/common/proxylookup.h"

namespace mpbp {
namespace {

// The page's side of the channel, and standard input as one more descriptor of the loop.
class LineClient final : public ClientChannelDelegate, public IoDispatcher {
 public:
  bool Start(const std::string& url) {
    channel_ = ClientChannel::Create(this, url);
    return channel_ &&
           channel_->Start(std::make_unique<PluginMessageSocket>()) == LinkAttempt::UNDER_WAY;
  }

  void MessageReceived(const std::string& text) override {
    printf("%s\n", text.c_str());
    fflush(stdout);
  }
  bool StartHttpRequest(const HttpRequest&, std::unique_ptr<HttpResponse>&) override {
    return false;  // the engine is told that it could not be started
  }
  bool GetProxyForUrl(const std::string& text, std::string* reply) override {
    return AnswerProxyRequest(text, reply);
  }

  uint32_t GetRequestedEvents() const override { return EVENT_READ; }
  void OnPreEvent(uint32_t) override {}
  void OnEvent(uint32_t, int) override {
    char bytes[4096];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
    if (count <= 0) Thread::Current()->Quit();
    for (ssize_t i = 0; i < count; ++i) {
      if (bytes[i] != '\n') {
        line_ += bytes[i];
        continue;
      }
      if (!channel_->Send(line_)) fprintf(stderr, "line-client: a line could not be sent\n");
      line_.clear();
    }
  }
  int GetDescriptor() const override { return STDIN_FILENO; }
  bool IsDescriptorClosed() const override { return false; }

 private:
  std::shared_ptr<ClientChannel> channel_;
  std::string line_;
};

int Run(const std::string& url) {
  LogMessage::LogToDebug(LS_ERROR);
  Filesystem::SetOrganizationName("Murmel");
  Filesystem::SetApplicationName("Murmel Parl Plugin");
  SetRequireSecureStandardHosts(true);
  PhysicalSocketServer server;
  Thread thread(&server);
  ThreadManager::Instance().SetCurrentThread(&thread);
  LineClient client;
  const bool started = client.Start(url) && server.Add(&client);
  if (started) thread.ProcessMessages(kForever);  // until the end of the input
  return started ? 0 : 1;
}

}  // namespace
}  // namespace mpbp

int main(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "--url") return mpbp::Run(argv[2]);
  fputs("usage: line-client --url URL\n", stderr);
  return 2;
}
