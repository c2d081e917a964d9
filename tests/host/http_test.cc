#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/host.h"
#include "tests/host/test_module.h"
#include "tests/support/http_server.h"

namespace mpbp::host {
namespace {

using test::HttpServer;
using test::HttpServerRequest;
using test::HttpServerResponse;
using test::test_module_state;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

size_t OpenDescriptors() {
  return static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// How many of the open descriptors a program that is started now would inherit.
int InheritableDescriptors() {
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0) ++count;
  }
  return count;
}

const int kInheritableAtStart = InheritableDescriptors();

class HttpTest : public testing::Test {
 protected:
  HttpTest() {
    host_.options().connect_timeout_ms = 5000;
    EXPECT_EQ(host_.LoadLinked({&PPP_InitializeModule, &PPP_GetInterface, &PPP_ShutdownModule}),
              std::nullopt);
    page_ = host_.CreatePage("https://www.murmel.example/");
  }
  ~HttpTest() override {
    host_.Unload();
    EXPECT_THAT(host_.Misuse(), IsEmpty());
    EXPECT_EQ(host_.leaked(), 0u);
  }

  // Starts a request with universal access and waits for its end. Returns its last result.
  int32_t Fetch(const std::string& url, const std::string& method = "GET",
                const std::string& headers = "", const std::string& body = "") {
    page_->Call("fetch", {url, method, headers, body, true});
    return WaitForEnd();
  }
  int32_t WaitForEnd() {
    auto& events = test_module_state().events;
    EXPECT_TRUE(host_.RunUntil([&] { return events.back() == "fetched"; }, 20000));
    events.emplace_back("seen");
    return test_module_state().results.back();
  }

  HttpServerResponse Answer(const HttpServerRequest& request) {
    HttpServerResponse response;
    if (request.path == "/5000") response.body = std::string(5000, 'x');
    if (request.path == "/big") response.body = std::string(12 << 20, 'y');
    if (request.path == "/nul") response.body = request.body;
    if (request.path == "/chunked") {
      response.chunked = true;
      response.body = std::string(2500, 'z');
    }
    if (request.path == "/broken") {
      response.body = std::string(3000, 'b');
      response.break_after = 1500;
    }
    response.drop = request.path == "/drop";
    response.hang = request.path == "/hang";
    if (request.path == "/headers") {
      response.status = 404;
      response.reason = "Not There";
      response.headers = {{"X-A", "1"}, {"Last-Modified", "now"}, {"x-a", "2"}};
    }
    if (request.path == "/once") return test::RedirectTo("/headers");
    if (request.path == "/away") {
      return test::RedirectTo("http://localhost:" + std::to_string(server_.port()) + "/5000");
    }
    if (request.path == "/round") return test::RedirectTo("/round");
    if (request.path == "/keep") return test::RedirectTo("/nul", 307);
    return response;
  }

  HttpServer server_{[this](const HttpServerRequest& request) { return Answer(request); }};
  Host host_;
  std::shared_ptr<Page> page_;
};

TEST_F(HttpTest, ABodyArrivesInPiecesOfWhatWasAskedAndNothingAtOnce) {
  page_->Call("fetch", {server_.Url("/5000"), "GET", "", "", true});
  EXPECT_THAT(test_module_state().results, IsEmpty());
  EXPECT_EQ(WaitForEnd(), 0);
  EXPECT_EQ(test_module_state().body, std::string(5000, 'x'));
  EXPECT_EQ(Fetch(server_.Url("/chunked")), 0);
  EXPECT_EQ(test_module_state().body, std::string(2500, 'z'));
  EXPECT_EQ(Fetch(server_.Url("/big")), 0);  // more than is buffered at a time
  EXPECT_EQ(test_module_state().body, std::string(12 << 20, 'y'));
}

TEST_F(HttpTest, ReadsCompleteAtOnceWhenTheOptionSaysSo) {
  host_.options().complete_reads_at_once = true;
  page_->Call("fetch", {server_.Url("/5000"), "GET", "", "", true});
  EXPECT_EQ(test_module_state().events.back(), "fetched");
  EXPECT_THAT(test_module_state().results.front(), 0);
  EXPECT_EQ(test_module_state().body, std::string(5000, 'x'));
  EXPECT_EQ(Fetch(server_.Url("/drop")), PP_ERROR_CONNECTION_FAILED);
}

TEST_F(HttpTest, TheResponseReadsAsABrowsersDoes) {
  EXPECT_EQ(Fetch(server_.Url("/once")), 0);
  EXPECT_THAT(test_module_state().response,
              HasSubstr("404 Not There " + server_.Url("/headers") +
                        "\nX-A: 1, 2\nLast-Modified: now\nContent-Length: 0\n"));
}

TEST_F(HttpTest, TheRequestCarriesHeadersAndBodyAsGiven) {
  const std::string body("a\0\xFF", 3);
  EXPECT_EQ(
      Fetch(server_.Url("/nul?q=1"), "POST", "X-One: 1\r\n\nX-Two: 2\nX-Empty:\n\n", "ignored"), 0);
  const HttpServerRequest request = server_.requests().at(0);
  EXPECT_EQ(request.method + " " + request.path, "POST /nul?q=1");
  EXPECT_EQ(request.Header("x-one") + request.Header("X-TWO"), "12");
  EXPECT_THAT(request.head, HasSubstr("X-Empty:\r\n"));
  EXPECT_EQ(request.Header("content-type"), "");
  EXPECT_EQ(Fetch(server_.Url("/keep"), "POST", "", std::string("p\0q", 3)), 0);
  EXPECT_EQ(test_module_state().body, std::string("p\0q", 3));
  EXPECT_EQ(Fetch(server_.Url("/once"), "POST", "", "body"), 0);
  EXPECT_EQ(server_.requests().back().method, "GET");
}

TEST_F(HttpTest, FailuresHaveTheBrowsersCodes) {
  uint16_t closed_port = 0;
  {
    HttpServer gone([](const HttpServerRequest&) { return HttpServerResponse(); });
    closed_port = gone.port();
  }
  EXPECT_EQ(Fetch("http://127.0.0.1:" + std::to_string(closed_port) + "/"),
            PP_ERROR_CONNECTION_REFUSED);
  EXPECT_EQ(Fetch("http://nowhere.invalid/"), PP_ERROR_NAME_NOT_RESOLVED);
  EXPECT_EQ(Fetch(server_.Url("/round")), PP_ERROR_FAILED);
  EXPECT_EQ(server_.requests().size(), 21u);
  EXPECT_EQ(Fetch("ftp://127.0.0.1/"), PP_ERROR_FAILED);
  EXPECT_EQ(Fetch(server_.Url("/broken")), PP_ERROR_CONNECTION_FAILED);
  EXPECT_EQ(test_module_state().body, std::string(1500, 'b'));
  host_.options().http_timeout_ms = 100;
  EXPECT_EQ(Fetch(server_.Url("/hang")), PP_ERROR_CONNECTION_TIMEDOUT);
}

TEST_F(HttpTest, AnotherOriginNeedsUniversalAccess) {
  page_->Call("fetch", {server_.Url("/5000"), "GET", "", ""});
  EXPECT_EQ(WaitForEnd(), PP_ERROR_FAILED);
  EXPECT_THAT(server_.requests(), IsEmpty());
  page_ = host_.CreatePage(server_.Url("/page"));
  page_->Call("fetch", {server_.Url("/5000"), "GET", "", ""});
  EXPECT_EQ(WaitForEnd(), 0);
  page_->Call("fetch", {server_.Url("/away"), "GET", "", ""});
  EXPECT_EQ(WaitForEnd(), PP_ERROR_FAILED);
  EXPECT_EQ(Fetch(server_.Url("/away")), 0);
}

TEST_F(HttpTest, DestroyingTheInstanceAbortsWhatIsUnderWay) {
  page_->Call("fetch", {server_.Url("/hang"), "GET", "", "", true});
  EXPECT_TRUE(host_.RunUntil([&] { return !server_.requests().empty(); }, 5000));
  page_->DestroyInstance();
  EXPECT_THAT(test_module_state().results, IsEmpty());
  host_.RunFor(1);
  EXPECT_THAT(test_module_state().results, ElementsAre(PP_ERROR_ABORTED));
}

TEST_F(HttpTest, ManyRequestsRunTogetherAndLeaveNoDescriptor) {
  Fetch(server_.Url("/warm"));
  page_->Call("fetch", {server_.Url("/hang"), "GET", "", "", true});
  EXPECT_TRUE(host_.RunUntil([&] { return server_.requests().size() == 2; }, 5000));
  EXPECT_EQ(InheritableDescriptors(), kInheritableAtStart);
  server_.Stop();
  EXPECT_EQ(WaitForEnd(), PP_ERROR_CONNECTION_FAILED);
  const size_t before = OpenDescriptors();
  {
    HttpServer server([this](const HttpServerRequest& request) { return Answer(request); });
    for (int i = 0; i < 20; ++i) {
      page_->Call("fetch", {server.Url("/5000"), "GET", "", "", true});
    }
    const auto& events = test_module_state().events;
    EXPECT_TRUE(host_.RunUntil(
        [&] { return std::count(events.begin(), events.end(), "fetched") == 22; }, 20000));
    EXPECT_EQ(test_module_state().body.size(), 20u * 5000);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace mpbp::host
