#include <chrono>

#include "tests/ppapi/module_fixture.h"

namespace mpbp::test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST_F(ModuleTest, OffersItsTablesOnlyWhileItIsThere) {
  Load();
  for (const char* const name : {"PPP_Instance;1.1", "PPP_Messaging;1.0", "PPP_InputEvent;0.1",
                                 "PPP_Instance_Private;0.1"}) {
    EXPECT_NE(host_.ModuleInterface(name), nullptr) << name;
  }
  EXPECT_FALSE(host_.ModuleInterface("PPP_Instance;1.0") || host_.ModuleInterface(""));
  EXPECT_THAT(host_.asked_interfaces(), testing::Contains("PPB_View;1.1"));
}

TEST_F(ModuleTest, IsLoadedUsedAndUnloadedAgainAndAgain) {
  for (int round = 0; round < 3; ++round) {
    CreatePage();
    EXPECT_EQ(Version(), "5.1.7.0") << round;
    host_.Unload();
    EXPECT_EQ(Version(), "none");
    EXPECT_EQ(host_.leaked(), 0u);
    // Really gone: nothing of the module's keeps it mapped.
    EXPECT_THAT(ReadFile("/proc/self/maps"), Not(HasSubstr("libmpbppapiplugin")));
  }
  EXPECT_THAT(Log(), HasSubstr("Cpu: "));
}

TEST_F(ModuleTest, ServesOnlyAllowedPages) {
  CreatePage("HTTPS://WWW.Murmel.Example:444/x");
  EXPECT_TRUE(page_->has_plugin());
  for (const char* const url :
       {"http://www.murmel.example/", "http://x.corp.murmel.example/", ""}) {
    CreatePage(url);
    EXPECT_FALSE(page_->has_plugin()) << url;
    EXPECT_THAT(Log(), HasSubstr(std::string("ClientChannel::Create failed, ") + url +
                                 " is not an allowed URL."));
  }
  app_data_.WriteOptions("plugin_enable_corp_host=1\n");
  CreatePage("http://x.corp.murmel.example/");
  EXPECT_TRUE(page_->has_plugin());
}

TEST_F(ModuleTest, ABrowserWithoutTheCoreIsRefused) {
  host_.options().withheld = {"PPB_Core;1.0"};
  EXPECT_THAT(host_.Load(MPBP_MODULE_PATH).value_or(""), HasSubstr("-2"));
}

TEST_F(ModuleTest, EveryOtherMissingInterfaceFailsQuietly) {
  for (const char* const name :
       {"PPB_Var;1.1", "PPB_Var(Deprecated);0.3", "PPB_Instance_Private;0.1", "PPB_Memory(Dev);0.1",
        "PPB_View;1.1", "PPB_URLLoader;1.0", "PPB_URLRequestInfo;1.0", "PPB_URLResponseInfo;1.0",
        "PPB_URLLoaderTrusted;0.3", "PPB_InputEvent;1.0"}) {
    host_.options().withheld = {name};
    CreatePage();
    // Without the page's URL the page cannot be judged, and without script there is no URL.
    const std::string withheld = name;
    const bool url_known =
        withheld != "PPB_Instance_Private;0.1" && withheld != "PPB_Var(Deprecated);0.3";
    EXPECT_EQ(Version(), url_known ? "5.1.7.0" : "none") << name;
    const bool listed = url_known && withheld != "PPB_Memory(Dev);0.1";
    EXPECT_EQ(page_->Enumerate().size(), listed ? 3u : 0u) << name;
    page_.reset();
    host_.Unload();
  }
  host_.options().withheld = {"PPB_Var;1.1", "PPB_Var;1.0"};
  CreatePage();  // the scripting table has what strings need
  EXPECT_EQ(Version(), "5.1.7.0");
}

TEST_F(ModuleTest, IgnoresWhatItDoesNotServe) {
  CreatePage();
  page_->PostMessage(std::string("[\"kill\",true]"));
  page_->ChangeView();
  page_->ChangeFocus(true);
  EXPECT_FALSE(page_->SendInputEvent());
  host_.RunFor(250);
  page_->DestroyInstance();
  host_.RunFor(250);  // the pump's last callback finds nothing
  EXPECT_THAT(Log(), Not(HasSubstr("Killing quern processes.")));
}

TEST_F(ModuleTest, TheLoadCanBeHeldUp) {
  const auto timed_load = [&](const char* value) {
    const ScopedEnv delay("MPARL_DELAY_LOAD", value);
    const auto start = std::chrono::steady_clock::now();
    Load();
    return std::chrono::steady_clock::now() - start;
  };
  EXPECT_GE(timed_load("1x"), std::chrono::seconds(1));
  for (const char* const value : {"0", "-5", "abc", "", "4294967296"}) {
    // A loaded machine may hold it up once or twice.
    const auto fastest = std::min({timed_load(value), timed_load(value), timed_load(value)});
    EXPECT_LT(fastest, std::chrono::milliseconds(900)) << value;
  }
}

}  // namespace
}  // namespace mpbp::test
