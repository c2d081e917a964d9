// What the module itself cannot show: the faults that the host finds, and the browser's own order.
#include "host/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

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

constexpr EntryPoints kTestModule = {&PPP_InitializeModule, &PPP_GetInterface, &PPP_ShutdownModule};
const char kUrl[] = "https://www.murmel.example/call";

class HostTest : public testing::Test {
 protected:
  HostTest() {
    EXPECT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
    page_ = host_.CreatePage(kUrl);
  }
  ~HostTest() override {
    host_.Unload();
    EXPECT_THAT(host_.Misuse(), IsEmpty());
    EXPECT_EQ(host_.leaked(), expected_leaks_);
  }
  static const std::vector<std::string>& Events() { return test_module_state().events; }

  Host host_;
  std::shared_ptr<Page> page_;
  size_t expected_leaks_ = 0;
};

TEST_F(HostTest, ValuesAndExceptionsPassBothWaysUnchanged) {
  const Value function = MakeFunction([](const Values&) { return Result(); });
  for (const Value& value : {Value(), Value(Null{}), Value(true), Value(-7), Value(0.5),
                             Value(std::string("a\0b", 3)), function, MakeObject()}) {
    const Result result = page_->Call("echo", {value});
    EXPECT_EQ(result.exception, std::nullopt);
    EXPECT_EQ(result.value, value) << ToText(value);
  }
  EXPECT_EQ(page_->Call("throw", {}).exception, "no");
  EXPECT_EQ(page_->Call("send", {}).exception, "send is not a function");
  page_->Set("src", 1);  // unknown to the module, kept by the element
  EXPECT_EQ(page_->Get("src").value, Value(1));
  page_->Set("onmessage", MakeFunction([](const Values&) { return Result{{}, "thrown"}; }));
  EXPECT_EQ(page_->Call("call", {1}).value, Value("thrown"));
  page_->Set("onmessage",
             MakeFunction([](const Values&) -> Result { throw std::logic_error("C++"); }));
  EXPECT_EQ(page_->Call("call", {1}).value, Value("C++"));
  page_->Set("onmessage", MakeObject());
  EXPECT_EQ(page_->Call("call", {1}).value, Value("object is not a function"));
}

TEST_F(HostTest, TheObjectGoesWithTheLastReferenceOrWhenForced) {
  page_->SetOnMessage([&](const std::string&) {
    page_->ClearOnMessage(Undefined{});
    page_->DestroyInstance();
    EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate"));
  });
  EXPECT_EQ(page_->Call("call", {"last"}).exception, std::nullopt);
  EXPECT_EQ(page_->Call("call", {}).exception, "call is not a function");
  for (const bool force : {false, true}) {
    host_.options().force_deallocate = force;
    page_ = host_.CreatePage(kUrl);
    ObjectRef held = page_->Element();
    page_->DestroyInstance();
    EXPECT_EQ(Events().back(), force ? "deallocate" : "destroy");
    Thrown thrown;
    EXPECT_EQ(held.get()->Call("echo", {5}, thrown), force ? Value() : Value(5));
    EXPECT_EQ(thrown, force ? Thrown("the plug-in object is gone") : std::nullopt);
    held.Reset();
    EXPECT_EQ(Events().back(), "deallocate");
  }
  const auto refused = host_.CreatePage(kUrl, {{"refuse", ""}});
  EXPECT_FALSE(refused->has_plugin());
  EXPECT_FALSE(refused->Element());
  EXPECT_EQ(Events().back(), "destroy");
}

TEST_F(HostTest, CallbacksRunInOrderOfTheirTimeAndNeverInsideTheCallAndLateOrNeverAtTheEnd) {
  const auto start = std::chrono::steady_clock::now();
  for (const int delay : {800, 60000, 0}) page_->Call("later", {delay});
  EXPECT_THAT(Events(), ElementsAre("create"));
  EXPECT_TRUE(host_.RunUntil([] { return Events().back() == "late:800"; }, 20000));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(800));
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "late:0", "late:800", "destroy", "deallocate",
                                    "late:60000", "shutdown"));
  host_.options().drop_pending = true;
  ASSERT_EQ(host_.LoadLinked(kTestModule), std::nullopt);
  host_.CreatePage(kUrl)->Call("later", {0});
  host_.Unload();
  EXPECT_THAT(Events(), ElementsAre("create", "destroy", "deallocate", "shutdown"));
}

TEST_F(HostTest, FaultsOfTheModuleAreRecorded) {
  const struct {
    const char* method;
    const char* misuse;
  } faults[] = {{"overRelease", "is not alive"},
                {"deadVar", "is not alive"},
                {"dirtyException", "was not undefined before the call"},
                {"offThread", "called off the main thread"},
                {"freeForeign", "was not made by MemAlloc"},
                {"call", "called on undefined"}};
  for (const auto& fault : faults) {
    page_->Call(fault.method, {1});
    ASSERT_FALSE(host_.Misuse().empty()) << fault.method;
    EXPECT_THAT(host_.Misuse().front(), HasSubstr(fault.misuse));
    host_.ClearMisuse();
  }
  EXPECT_THAT(page_->Enumerate(), IsEmpty());
  EXPECT_THAT(host_.Misuse(), ElementsAre(HasSubstr("2 names in a block of 16 bytes")));
  host_.ClearMisuse();
  page_->Call("leak", {});
  host_.Unload();
  EXPECT_THAT(host_.LeakedVars(), ElementsAre("\"leaked\" with 1 references"));
  EXPECT_THAT(host_.LeakedResources(), ElementsAre("URL loader with 1 references"));
  expected_leaks_ = 2;
}

TEST(HostLoad, LoadsOneFileAfterTheOtherAndSaysWhatIsWrong) {
  Host host;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(host.Load(TEST_MODULE), std::nullopt);
    const auto page = host.CreatePage(kUrl);
    EXPECT_EQ(page->Call("echo", {1}).value, Value(1));
    host.Unload();
    EXPECT_EQ(page->Call("echo", {1}).exception, "echo is not a function");
  }
  EXPECT_EQ(host.Load("/nonexistent.so"), "cannot read /nonexistent.so: No such file or directory");
  EXPECT_THAT(host.Load(EMPTY_MODULE).value_or(""),
              HasSubstr("has no entry point PPP_InitializeModule"));
  EXPECT_THAT(host.Load("/dev/null").value_or(""), HasSubstr("cannot load /dev/null"));
}

class HttpTest : public HostTest {
 protected:
  // Starts a request and waits for its end. Returns its last result.
  int32_t Fetch(const std::string& url, const std::string& method = "GET",
                const std::string& body = "", bool other_origins = true) {
    test_module_state().events = {"started"};
    page_->Call("fetch", {url, method, body, other_origins});
    EXPECT_TRUE(host_.RunUntil([] { return Events().back() == "fetched"; }, 20000));
    return test_module_state().results.back();
  }
  HttpServerResponse Answer(const HttpServerRequest& request) {
    const std::string& path = request.path;
    if (path == "/round" || path == "/away") {
      return test::RedirectTo(
          path == "/round" ? path : "http://localhost:" + std::to_string(server_.port()));
    }
    if (path == "/302" || path == "/307") return test::RedirectTo("/", std::stoi(path.substr(1)));
    HttpServerResponse response;
    response.body = request.method + request.body;
    response.hang = path == "/hang";
    return response;
  }
  HttpServer server_{[this](const HttpServerRequest& request) { return Answer(request); }};
};

TEST_F(HttpTest, FailuresHaveTheBrowsersCodes) {
  HttpServer gone([](const HttpServerRequest&) { return HttpServerResponse(); });
  gone.Stop();
  EXPECT_EQ(Fetch(gone.Url("/")), PP_ERROR_CONNECTION_REFUSED);
  EXPECT_EQ(Fetch("http://nowhere.invalid/"), PP_ERROR_NAME_NOT_RESOLVED);
  EXPECT_EQ(Fetch("ftp://127.0.0.1/"), PP_ERROR_FAILED);
  EXPECT_EQ(Fetch(server_.Url("/round")), PP_ERROR_FAILED);
  EXPECT_EQ(server_.requests().size(), 21u);
  host_.options().http_timeout_ms = 100;
  EXPECT_EQ(Fetch(server_.Url("/hang")), PP_ERROR_CONNECTION_TIMEDOUT);
}

TEST_F(HttpTest, RedirectsKeepTheMethodOrNotAndLeaveTheOriginOnlyWhenAllowed) {
  const std::string body("a\0b", 3);
  EXPECT_EQ(Fetch(server_.Url("/307"), "POST", body), PP_OK);
  EXPECT_EQ(test_module_state().body, "POST" + body);
  EXPECT_EQ(Fetch(server_.Url("/302"), "POST", body), PP_OK);
  EXPECT_EQ(test_module_state().body, "GET");
  EXPECT_EQ(Fetch(server_.Url("/away")), PP_OK);
  EXPECT_EQ(Fetch(server_.Url("/"), "GET", "", false), PP_ERROR_FAILED);
  EXPECT_EQ(server_.requests().size(), 6u);  // that one was never sent
  page_ = host_.CreatePage(server_.Url("/page"));
  EXPECT_EQ(Fetch(server_.Url("/"), "GET", "", false), PP_OK);
  EXPECT_EQ(Fetch(server_.Url("/away"), "GET", "", false), PP_ERROR_FAILED);
}

TEST_F(HttpTest, DestroyingTheInstanceAbortsWhatIsUnderWay) {
  page_->Call("fetch", {server_.Url("/hang"), "GET", "", true});
  EXPECT_TRUE(host_.RunUntil([&] { return !server_.requests().empty(); }, 20000));
  page_->DestroyInstance();
  EXPECT_THAT(test_module_state().results, IsEmpty());
  host_.RunFor(1);
  EXPECT_THAT(test_module_state().results, ElementsAre(PP_ERROR_ABORTED));
}

}  // namespace
}  // namespace mpbp::host
