#include <sys/resource.h>

#include <atomic>
#include <map>
#include <set>

#include "tests/ppapi/service_fixture.h"
#include "tests/support/http_server.h"
#include "tests/support/wait_until.h"

namespace mpbp::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string EveryByte() {
  std::string bytes;
  for (int c = 0; c < 256; ++c) bytes += static_cast<char>(c);
  return bytes;
}

struct Request {
  int id = 1;
  std::string path;
  std::string verb = "GET";
  std::string headers;
  std::string body;
  std::string host = "127.0.0.1";
  int port = 0;
  std::string proto = "http";
};

std::string TextOf(const Request& r) {
  return "[\"httprequest\"," + std::to_string(r.id) + ",{\"host\":" + Quoted(r.host) +
         ",\"path\":" + Quoted(r.path) + ",\"port\":" + std::to_string(r.port) +
         ",\"proto\":" + Quoted(r.proto) + ",\"verb\":" + Quoted(r.verb) + "}," +
         Quoted(r.headers) + "," + Quoted(r.body) + "]";
}

std::string Failure(int64_t id, int error) {
  return "[\"httpresponse\"," + std::to_string(id) + ",{\"error\":" + std::to_string(error) +
         ",\"lastmodified\":0}]";
}

class HttpServiceTest : public ServiceTest {
 protected:
  // The answer to one request that is made alone.
  std::string Fetch(Request request) {
    if (request.port == 0) request.port = server_.port();
    const auto answers = Ask({TextOf(request)}, 1);
    return answers.empty() ? "" : answers[0];
  }

  std::map<std::string, HttpServerResponse> responses_;  // by path; unchanged while requests run
  HttpServer server_{[this](const HttpServerRequest& request) {
    const auto found = responses_.find(request.path);
    return found == responses_.end() ? HttpServerResponse{.body = "?"} : found->second;
  }};
};

TEST_F(HttpServiceTest, ARequestReachesTheServerAsTheEngineWroteIt) {
  Start({.connect_to = {"plain.example:80:127.0.0.1:" + std::to_string(server_.port())}});
  Fetch({.path = "/get?a=%20b", .headers = "X-One: 1\r\nX-Two:  two words \r\n\r\n\r\n"});
  Fetch({.path = "/post", .verb = "POST", .headers = "X-One: 1\n", .body = EveryByte()});
  // A scheme's own port is written like any other.
  EXPECT_THAT(Fetch({.path = "/plain", .host = "plain.example", .port = 80}),
              HasSubstr("\"url\":\"http://plain.example:80/plain\""));
  // Neither text is needed.
  EXPECT_EQ(Ask({"[\"httprequest\",1,{\"host\":\"127.0.0.1\",\"path\":\"/bare\",\"port\":" +
                 std::to_string(server_.port()) + ",\"proto\":\"http\",\"verb\":\"GET\"}]"},
                1)
                .size(),
            1u);

  const std::vector<HttpServerRequest> got = server_.requests();
  ASSERT_EQ(got.size(), 4u);
  EXPECT_EQ(got[0].method + " " + got[0].path, "GET /get?a=%20b");
  EXPECT_EQ(got[0].Header("Host"), "127.0.0.1:" + std::to_string(server_.port()));
  EXPECT_THAT(got[0].head, HasSubstr("X-One: 1\r\n"));
  EXPECT_THAT(got[0].head, HasSubstr("X-Two:  two words"));
  EXPECT_EQ(got[0].Header("Content-Length") + got[0].body, "");
  EXPECT_EQ(got[1].method + got[1].Header("X-One"), "POST1");
  EXPECT_EQ(got[1].body, EveryByte());
  EXPECT_EQ(got[3].method + " " + got[3].path, "GET /bare");
}

TEST_F(HttpServiceTest, AnAnswerReachesTheEngineAsTheServerGaveIt) {
  const struct {
    std::string path;
    HttpServerResponse response;
    std::string headers;  // before the two that the server adds
    uint32_t lastmodified = 0;
    int error = 0;
    std::string body = response.body;
  } rows[] = {
      {"/bytes", {.body = EveryByte()}, "OK\n"},
      {"/empty", {.status = 404, .reason = "Not Found"}, "Not Found\n"},
      {"/noreason", {.reason = "", .body = "x"}, "\n"},
      {"/chunked", {.body = std::string(2500, 'c'), .chunked = true}, "OK\n"},
      {"/big", {.body = std::string(1 << 20, 'b')}, "OK\n"},
      {"/repeated",
       {.headers = {{"X-Very", "a: b"}, {"Set-It", "1"}, {"x-very", "2"}}, .body = "x"},
       "OK\nX-Very: a: b, 2\nSet-It: 1\n"},
      {"/fixdate",
       {.headers = {{"last-modified", "Sun, 06 Nov 1994 08:49:37 GMT"}}, .body = "x"},
       "OK\nlast-modified: Sun, 06 Nov 1994 08:49:37 GMT\n",
       784111777},
      {"/rfc850",
       {.headers = {{"Last-Modified", "Sunday, 06-Nov-94 08:49:37 GMT"}}, .body = "x"},
       "OK\nLast-Modified: Sunday, 06-Nov-94 08:49:37 GMT\n",
       784111777},
      {"/asctime",
       {.headers = {{"LAST-MODIFIED", "Sun Nov  6 08:49:37 1994"}}, .body = "x"},
       "OK\nLAST-MODIFIED: Sun Nov  6 08:49:37 1994\n",
       784111777},
      {"/nodate",
       {.headers = {{"Last-Modified", "yesterday"}}, .body = "x"},
       "OK\nLast-Modified: yesterday\n"},
      {"/broken",
       {.body = std::string(3000, 'b'), .break_after = 1500},
       "OK\n",
       0,
       2,
       std::string(1500, 'b')},
  };
  responses_["/moved"] = RedirectTo("/bytes");
  for (const auto& row : rows) responses_[row.path] = row.response;
  Start();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    const Json::Value answer = Parsed(Fetch({.id = 4711, .path = row.path}));
    ASSERT_EQ(answer.size(), row.body.empty() ? 4u : 5u);
    EXPECT_EQ(answer[0], "httpresponse");
    EXPECT_EQ(answer[1], 4711);
    EXPECT_EQ(answer[2].getMemberNames(), (Json::Value::Members{"error", "lastmodified", "url"}));
    EXPECT_EQ(answer[2]["error"], row.error);
    EXPECT_EQ(answer[2]["lastmodified"].asUInt(), row.lastmodified);
    EXPECT_EQ(answer[2]["url"], server_.Url(row.path));
    EXPECT_EQ(answer[3].asString(),
              row.headers +
                  (row.response.chunked
                       ? "Transfer-Encoding: chunked\n"
                       : "Content-Length: " + std::to_string(row.response.body.size()) + "\n") +
                  "Connection: close\n");
    EXPECT_EQ(answer.get(4, "").asString(), row.body);
  }
  const std::string moved = Fetch({.path = "/moved"});
  EXPECT_EQ(Parsed(moved)[2]["url"], server_.Url("/bytes"));
  EXPECT_EQ(Parsed(moved)[4].asString(), EveryByte());
  // On the wire bytes above 127 stand as they are.
  EXPECT_THAT(moved, HasSubstr(EveryByte().substr(128)));
  EXPECT_THAT(Log(), HasSubstr("HTTP response missing version info; assuming 1.1.\n"));
  EXPECT_THAT(texts_, IsEmpty());
}

TEST_F(HttpServiceTest, ARequestThatFailsIsAnsweredWithItsError) {
  responses_["/drop"] = {.drop = true};
  HttpServer gone([](const HttpServerRequest&) { return HttpServerResponse(); });
  gone.Stop();
  Start();
  EXPECT_EQ(Fetch({.id = 1, .path = "/drop"}), Failure(1, 2));
  EXPECT_EQ(Fetch({.id = 2, .path = "/", .port = gone.port()}), Failure(2, 2));
  EXPECT_EQ(Fetch({.id = 3, .path = "/", .verb = "PUT"}), Failure(3, 3));
  EXPECT_EQ(Fetch({.id = 4, .path = "/", .verb = "get"}), Failure(4, 3));
  EXPECT_EQ(Fetch({.id = 5, .path = "/", .proto = "gopher"}), Failure(5, 3));
  EXPECT_THAT(Log(), HasSubstr("OnOpenComplete got error -102\n"));
  EXPECT_THAT(Log(), HasSubstr("HTTP verb not supported: PUT\n"));
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(HttpServiceTest, AMalformedRequestGetsTheAnswerThatItsFieldsAllow) {
  const auto with_target = [](const char* target) {
    return "[\"httprequest\",7," + std::string(target) + ",\"\",\"\"]";
  };
  const std::string good =
      R"({"host":"127.0.0.1","path":"/","port":80,"proto":"http","verb":"GET")";
  const std::pair<std::string, uint32_t> cases[] = {
      {"[\"httprequest\"]", 0},
      {"[\"httprequest\",7]", 7},
      {"[\"httprequest\",-1]", 4294967295},
      {"[\"httprequest\",4294967295]", 4294967295},
      {"[\"httprequest\",4294967296," + good + "}]", 0},
      {"[\"httprequest\",\"7\"," + good + "}]", 0},
      {with_target("null"), 7},
      {with_target("[]"), 7},
      {with_target(R"({"host":"h","path":"/","port":80,"proto":"http"})"), 7},
      {with_target(R"({"host":"h","path":"/","port":"80","proto":"http","verb":"GET"})"), 7},
      {with_target(R"({"host":"h","path":"/","port":3000000000,"proto":"http","verb":"GET"})"), 7},
      {with_target(R"({"host":["h"],"path":"/","port":80,"proto":"http","verb":"GET"})"), 7},
      {"[\"httprequest\",7," + good + "},5,\"\"]", 7},
      {"[\"httprequest\",7," + good + "},\"\",{\"a\":1}]", 7},
      {"[\"qw\",\"httprequest\"]", 0},  // told by the word, wherever it stands
  };
  std::vector<std::string> texts;
  std::vector<std::string> expected;
  for (const auto& [text, id] : cases) {
    texts.push_back(text);
    expected.push_back(Failure(id, 3));
  }
  // No array, no answer.
  texts.insert(texts.begin(), {"[\"httprequest\",7,", "{\"kind\":\"httprequest\"}"});
  Start();
  EXPECT_EQ(Ask(texts, expected.size()), expected);
  EXPECT_THAT(Log(), HasSubstr("no JSON array: [\"httprequest\",7,"));
  EXPECT_THAT(Log(), HasSubstr("no JSON array: {\"kind\":\"httprequest\"}"));
  EXPECT_THAT(texts_, IsEmpty());
}

TEST_F(HttpServiceTest, ManyRequestsRunAtTheSameTime) {
  constexpr size_t kCount = 20;
  HttpServer* server = nullptr;
  // Answers nobody before everybody has asked.
  HttpServer meeting([&](const HttpServerRequest& request) {
    const bool all = WaitUntil([&] { return server->requests().size() >= kCount; }, 10000);
    return HttpServerResponse{.body = all ? request.path : "alone"};
  });
  server = &meeting;
  Start();
  std::vector<std::string> texts;
  for (size_t i = 0; i < kCount; ++i) {
    texts.push_back(TextOf(
        {.id = static_cast<int>(i), .path = "/" + std::to_string(i), .port = meeting.port()}));
  }
  std::set<unsigned> answered;
  for (const std::string& text : Ask(texts, kCount)) {
    const Json::Value answer = Parsed(text);
    EXPECT_EQ(answer[4].asString(), "/" + std::to_string(answer[1].asUInt()));
    answered.insert(answer[1].asUInt());
  }
  EXPECT_EQ(answered.size(), kCount);
}

// Lowers the limit up to which the stack of the main thread may grow.
class ScopedStackLimit {
 public:
  explicit ScopedStackLimit(rlim_t bytes) {
    EXPECT_EQ(getrlimit(RLIMIT_STACK, &old_), 0);
    const rlimit limit{bytes, old_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_STACK, &limit), 0);
  }
  ScopedStackLimit(const ScopedStackLimit&) = delete;
  ScopedStackLimit& operator=(const ScopedStackLimit&) = delete;
  ~ScopedStackLimit() { EXPECT_EQ(setrlimit(RLIMIT_STACK, &old_), 0); }

 private:
  rlimit old_{};
};

TEST_F(HttpServiceTest, TheStackDoesNotGrowWithTheBodyWhenReadsCompleteAtOnce) {
  responses_["/big"] = {.body = std::string(6 << 20, 'b')};
  responses_["/drop"] = {.drop = true};
  responses_["/broken"] = {.body = "0123456789", .break_after = 5};
  Start({.complete_reads_at_once = true});
  const ScopedStackLimit limit(1 << 20);
  const std::string answer = Fetch({.path = "/big"});
  EXPECT_EQ(Parsed(answer)[4].asString().size(), responses_["/big"].body.size());
  EXPECT_THAT(Fetch({.path = "/broken"}), StartsWith("[\"httpresponse\",1,{\"error\":2,"));
  EXPECT_EQ(Fetch({.path = "/drop"}), Failure(1, 3));  // refused by the call that opens it
}

TEST_F(HttpServiceTest, AnInstanceThatGoesTakesItsRequestsWithIt) {
  responses_["/hang"] = {.hang = true};
  responses_["/big"] = {.body = std::string(12 << 20, 'b')};
  WriteOptions("pluginppapi_log_level=LS_VERBOSE\n");
  Start();
  for (int id = 0; id < 3; ++id) {
    engine_->Send(TextOf({.id = id, .path = "/hang", .port = server_.port()}));
  }
  ASSERT_TRUE(RunUntil([&] { return server_.requests().size() == 3; }));
  engine_->Send(TextOf({.id = 3, .path = "/big", .port = server_.port()}));
  ASSERT_TRUE(RunUntil([&] { return Log().find("OnReadComplete") != std::string::npos; }));
  ASSERT_THAT(engine_->received, IsEmpty());  // none has ended
  page_->DestroyInstance();
  EXPECT_EQ(host_.live_resources(), 0u);
  // The next page is served as if nothing had been.
  OpenPage();
  EXPECT_THAT(Fetch({.id = 9, .path = "/"}), StartsWith("[\"httpresponse\",9,{\"error\":0,"));
}

TEST_F(HttpServiceTest, AnAnswerForALinkThatIsGoneIsDropped) {
  std::atomic<bool> release = false;
  HttpServer slow([&](const HttpServerRequest&) {
    WaitUntil([&] { return release.load(); }, kDeadlineMs);
    return HttpServerResponse{.body = "late"};
  });
  Start();
  engine_->Send(TextOf({.id = 8, .path = "/", .port = slow.port()}));
  ASSERT_TRUE(RunUntil([&] { return slow.requests().size() == 1; }));
  engine_->DropLink();
  ASSERT_TRUE(RunUntil([&] { return CountTexts("[\"f-dead\"]") > 0; }));
  release = true;
  EXPECT_TRUE(RunUntil(
      [&] { return Log().find("Dropping the answer to HTTP request 8: ") != std::string::npos; }));
}

// What each part of the loader's interfaces is needed for.
TEST_F(HttpServiceTest, ABrowserThatLacksAnInterfaceStillGetsTheEngineAnAnswer) {
  const std::pair<const char*, std::string> cases[] = {
      {"PPB_URLLoader;1.0", Failure(1, 3)},
      {"PPB_URLRequestInfo;1.0", Failure(1, 3)},
      {"PPB_URLResponseInfo;1.0",
       R"(["httpresponse",1,{"error":0,"lastmodified":0},"HTTP/1.1 0 \n","?"])"},
      // The page's own origin is all that it can reach.
      {"PPB_URLLoaderTrusted;0.3", Failure(1, 2)},
  };
  for (const auto& [name, answer] : cases) {
    SCOPED_TRACE(name);
    Start({.withheld = {name}});
    EXPECT_EQ(Fetch({.path = "/"}), answer);
    End();
  }
}

}  // namespace
}  // namespace mpbp::test
