#include <map>

#include "jsontext.h"
#include "tests/ppapi/module_fixture.h"
#include "tests/support/http_server.h"
#include "tests/support/scoped_limit.h"

namespace mpbp::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::string EveryByte() {
  std::string bytes;
  for (int c = 0; c < 256; ++c) bytes += static_cast<char>(c);
  return bytes;
}

std::string Quoted(const std::string& bytes) { return WriteJson(Json::Value(bytes)); }

struct Request {
  std::string path;
  std::string verb = "GET";
  std::string headers;
  std::string body;
  std::string host = "127.0.0.1";
  int port = 0;
  std::string proto = "http";
  int id = 1;
};

std::string TextOf(const Request& r) {
  return "[\"httprequest\"," + std::to_string(r.id) + ",{\"host\":" + Quoted(r.host) +
         ",\"path\":" + Quoted(r.path) + ",\"port\":" + std::to_string(r.port) +
         ",\"proto\":" + Quoted(r.proto) + ",\"verb\":" + Quoted(r.verb) + "}," +
         Quoted(r.headers) + "," + Quoted(r.body) + "]";
}

Json::Value Parsed(const std::string& text) {
  const std::optional<Json::Value> value = ParseJson(text);
  EXPECT_TRUE(value) << text;
  return value.value_or(Json::Value());
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
  const std::vector<HttpServerRequest> got = server_.requests();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].method + " " + got[0].path + got[0].body, "GET /get?a=%20b");
  const std::string host = "Host: 127.0.0.1:" + std::to_string(server_.port()) + "\r\n";
  EXPECT_THAT(got[0].head, AllOf(HasSubstr(host), HasSubstr("X-One: 1\r\n"),
                                 HasSubstr("X-Two:  two words"), Not(HasSubstr("Content-Length"))));
  EXPECT_EQ(got[1].method + got[1].body, "POST" + EveryByte());
  EXPECT_THAT(got[1].head, HasSubstr("X-One: 1\r\n"));
}

TEST_F(HttpServiceTest, AnAnswerReachesTheEngineAsTheServerGaveIt) {
  const struct {
    std::string path;
    HttpServerResponse response;
    uint32_t lastmodified = 0;
    int error = 0;
    std::string body = response.body;
    std::string headers = response.headers;  // as the engine gets them, with CR
  } rows[] = {{"/bytes", {.body = EveryByte(), .headers = "Content-Length: 256\r\n"}},
              {"/empty", {.status = "404 Not Found", .headers = "Content-Length: 0\r\n"}},
              {"/noreason", {"x", "200 ", "Content-Length: 1\r\n"}},
              {"/chunked",
               {"2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", "200 OK", "Transfer-Encoding: chunked\r\n"},
               0,
               0,
               "abc"},
              {"/big", {std::string(1 << 20, 'b'), "200 OK", "Content-Length: 1048576\r\n"}},
              {"/headers",
               {"x", "200 OK",
                "X-Very: a: b\r\nLAST-modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nx-very: 2\r\n"
                "Content-Length: 1\r\n"},
               784111777,
               0,
               "x",
               "X-Very: a: b, 2\r\nLAST-modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
               "Content-Length: 1\r\n"},
              {"/broken", {"01234", "200 OK", "Content-Length: 10\r\n"}, 0, 2}};
  for (const auto& row : rows) responses_[row.path] = row.response;
  Start();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    std::string headers =
        row.response.status.substr(4) + "\n" + row.headers + "Connection: close\n";
    std::erase(headers, '\r');
    EXPECT_EQ(Fetch({.path = row.path, .id = 4711}),
              "[\"httpresponse\",4711,{\"error\":" + std::to_string(row.error) +
                  ",\"lastmodified\":" + std::to_string(row.lastmodified) +
                  ",\"url\":" + Quoted(server_.Url(row.path)) + "}," + Quoted(headers) +
                  (row.body.empty() ? "" : "," + Quoted(row.body)) + "]");
    // A request that has ended keeps nothing of the browser's.
    EXPECT_TRUE(RunUntil([this] { return host_.live_resources() == 0; }));
  }
  responses_["/moved"] = RedirectTo("/bytes");
  const std::string moved = Fetch({.path = "/moved"});
  EXPECT_EQ(Parsed(moved)[2]["url"], server_.Url("/bytes"));
  EXPECT_EQ(Parsed(moved)[4].asString(), EveryByte());
  // On the wire bytes above 127 stand as they are.
  EXPECT_THAT(moved, HasSubstr(EveryByte().substr(128)));
  EXPECT_THAT(Log(), HasSubstr("HTTP response missing version info; assuming 1.1.\n"));
  EXPECT_THAT(texts_, IsEmpty());
  responses_["/same"] = RedirectTo("/", 307);
  responses_["/other"] = RedirectTo("/", 302);
  for (const std::string path : {"/same", "/other"}) {
    Fetch({.path = path, .verb = "POST", .body = EveryByte()});
    const HttpServerRequest last = server_.requests().back();
    EXPECT_EQ(last.method + last.path + last.body,
              path == "/same" ? "POST/" + EveryByte() : "GET/");
  }
}

TEST_F(HttpServiceTest, ARequestThatFailsIsAnsweredWithItsError) {
  responses_["/drop"].status = "";
  responses_["/hang"].hang = true;
  responses_["/round"] = RedirectTo("/round");
  responses_["/ftp"] = RedirectTo("ftp://127.0.0.1/");
  HttpServer gone([](const HttpServerRequest&) { return HttpServerResponse(); });
  gone.Stop();
  Start({.http_timeout_ms = 2000});
  const std::pair<Request, int32_t> failing[] = {
      {{.path = "/", .port = gone.port()}, PP_ERROR_CONNECTION_REFUSED},
      {{.path = "/", .host = "nowhere.invalid"}, PP_ERROR_NAME_NOT_RESOLVED},
      {{.path = "/round"}, PP_ERROR_FAILED},
      {{.path = "/drop"}, PP_ERROR_CONNECTION_FAILED},
      {{.path = "/ftp"}, PP_ERROR_FAILED},
      {{.path = "/hang"}, PP_ERROR_CONNECTION_TIMEDOUT}};
  for (const auto& [request, code] : failing) {
    EXPECT_EQ(Fetch(request), Failure(1, 2));
    const std::string log = Log();
    EXPECT_THAT(log.substr(log.rfind("got error ")),
                StartsWith("got error " + std::to_string(code) + "\n"));
  }
  EXPECT_EQ(server_.requests().size(), 21u + 1u + 1u + 1u);  // twenty redirects are followed
  EXPECT_EQ(Fetch({"/", "PUT"}), Failure(1, 3));
  EXPECT_EQ(Fetch({.path = "/", .proto = "gopher"}), Failure(1, 3));
  EXPECT_THAT(Log(), HasSubstr("HTTP verb not supported: PUT\n"));

  // Malformed ones get the answer that their fields allow; no array, no answer.
  const std::string target =
      R"({"host":"127.0.0.1","path":"/","port":80,"proto":"http","verb":"GET"})";
  EXPECT_EQ(Ask({"[\"httprequest\",7,", "[\"httprequest\",-1]", "[\"httprequest\",4294967296]",
                 "[\"httprequest\",8,null]", "[\"httprequest\",9," + target + ",5,\"\"]",
                 R"(["httprequest",10,{"host":"h","path":"/","port":80,"proto":"http"}])",
                 R"(["httprequest","a",{"verb":1,"proto":2,"host":[],"port":"x","path":{}},1,2])"},
                6),
            (std::vector{Failure(4294967295, 3), Failure(0, 3), Failure(8, 3), Failure(9, 3),
                         Failure(10, 3), Failure(0, 3)}));
  EXPECT_THAT(Log(), HasSubstr("no JSON array: [\"httprequest\",7,"));
  EXPECT_THAT(texts_, IsEmpty());
}

TEST_F(HttpServiceTest, TheStackDoesNotGrowWithTheBodyWhenReadsCompleteAtOnce) {
  responses_["/big"] = {.body = std::string(6 << 20, 'b')};
  responses_["/drop"].status = "";
  responses_["/broken"] = {"01234", "200 OK", "Content-Length: 10\r\n"};
  Start({.complete_reads_at_once = true});
  const ScopedLimit small(RLIMIT_STACK, 1 << 20);  // the main thread's may not grow beyond this
  EXPECT_EQ(Parsed(Fetch({.path = "/big"}))[4].asString(), responses_["/big"].body);
  EXPECT_THAT(Fetch({.path = "/broken"}), StartsWith("[\"httpresponse\",1,{\"error\":2,"));
  EXPECT_EQ(Fetch({.path = "/drop"}), Failure(1, 3));  // refused by the call that opens it
}

TEST_F(HttpServiceTest, ManyRequestsRunAtOnceAndGoWithTheirInstance) {
  responses_["/hang"].hang = true;
  responses_["/big"] = {.body = std::string(12 << 20, 'b')};
  WriteOptions("pluginppapi_log_level=LS_VERBOSE\n");
  Start();
  for (int i = 0; i < 20; ++i) engine_->Send(TextOf({.path = "/hang", .port = server_.port()}));
  ASSERT_TRUE(RunUntil([&] { return server_.requests().size() == 20; }));
  for (const int id : {21, 22}) {
    EXPECT_THAT(Fetch({.path = "/?", .id = id}),
                StartsWith("[\"httpresponse\"," + std::to_string(id) + ",{\"error\":0,"));
  }
  engine_->received.clear();
  engine_->Send(TextOf({.path = "/big", .port = server_.port()}));
  const size_t read = Log().rfind("OnReadComplete");
  ASSERT_TRUE(RunUntil([&] { return Log().rfind("OnReadComplete") != read; }));
  ASSERT_THAT(engine_->received, IsEmpty());  // none has ended
  page_->DestroyInstance();
  EXPECT_EQ(host_.live_resources(), 0u);
  // The next page is served as if nothing had been.
  ConnectPage();
  EXPECT_THAT(Fetch({.path = "/", .id = 9}), StartsWith("[\"httpresponse\",9,{\"error\":0,"));
}

// What each part of the loader's interfaces is needed for.
TEST_F(HttpServiceTest, ABrowserThatLacksAnInterfaceStillGetsTheEngineAnAnswer) {
  const std::pair<const char*, std::string> cases[] = {
      {"PPB_URLLoader;1.0", Failure(1, 3)},
      {"PPB_URLResponseInfo;1.0",
       R"(["httpresponse",1,{"error":0,"lastmodified":0},"HTTP/1.1 0 \n","?"])"},
      {"PPB_URLLoaderTrusted;0.3", Failure(1, 2)}};
  for (const auto& [name, answer] : cases) {
    SCOPED_TRACE(name);
    Start({.withheld = {name}});
    EXPECT_EQ(Fetch({.path = "/"}), answer);
    End();
  }
  // The last one's page reaches its own origin, and from there no other.
  responses_["/away"] = RedirectTo(server_.Url("/"));
  WriteOptions("plugin_enable_corp_host=1\n");
  Start({.withheld = {"PPB_URLLoaderTrusted;0.3"},
         .connect_to = {"a.corp.murmel.example:80:127.0.0.1:" + std::to_string(server_.port())}},
        "http://a.corp.murmel.example/");
  EXPECT_THAT(Fetch({.path = "/", .host = "a.corp.murmel.example", .port = 80}),
              StartsWith("[\"httpresponse\",1,{\"error\":0,"));
  EXPECT_EQ(Fetch({.path = "/away", .host = "a.corp.murmel.example", .port = 80}), Failure(1, 2));
  // What may not be reached is not even asked, but after a redirection.
  EXPECT_EQ(server_.requests().size(), 1u + 1u + 2u);
}

}  // namespace
}  // namespace mpbp::test
