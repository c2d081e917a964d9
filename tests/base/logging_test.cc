#include "base/logging.h"

#include <gmock/gmock.h>

#include "tests/support/captured_log.h"
#include "tests/support/comma_locale.h"

namespace mpbp {
namespace {

TEST(LoggingTest, NothingIsEvaluatedOrWrittenUntilAnOutputWantsIt) {
  int evaluated = 0;
  LOG(LS_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  {
    const test::CapturedLog errors(LS_ERROR);
    const test::CapturedLog warnings(LS_WARNING);
    LOG(LS_INFO) << ++evaluated;
    EXPECT_EQ(evaluated, 0);
    LogMessage("a.cc", 1, LS_WARNING).stream() << ++evaluated;
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(warnings.text(), "Warning(a.cc:1): 1\n");
  }
  LOG(LS_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
}

TEST(LoggingTest, ALineCarriesStampPlaceTextAndErrorInEveryLocale) {
  const test::CommaLocale locale;
  test::CapturedLog log(LS_INFO);
  LOG(LS_INFO) << "plain " << 1024;
  LogMessage("dir/other\\server.cc", 330, LS_WARNING).stream() << "odd";
  LogMessage("a\\b/c.cc", 1001, LS_ERROR, ERRCTX_ERRNO, EAGAIN).stream() << "fork()";
  LogMessage("a.cc", 2, LS_INFO, 7, 255).stream() << "code only";
  EXPECT_EQ(log.text(),
            "plain 1024\nWarning(server.cc:330): odd\n"
            "Error(c.cc:1001): fork() : [0x0000000b] Resource temporarily unavailable\n"
            "code only : [0x000000ff]\n");
  log.Clear();
  LogMessage::LogTimestamps(true);
  LOG(LS_INFO) << "stamped";
  LogMessage::LogTimestamps(false);
  EXPECT_THAT(log.text(), testing::MatchesRegex("\\[[0-9]{3,}:[0-9]{3}\\] stamped\n"));
}

}  // namespace
}  // namespace mpbp
