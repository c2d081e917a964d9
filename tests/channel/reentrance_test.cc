// The page acts from inside its own callback, at every text it can get. Whatever it does, nothing
// that is gone may be touched: the sanitizers look on.
#include <map>

#include "tests/channel/channel_fixture.h"

namespace mpbp::test {
namespace {

class Reentrance : public ChannelTest,
                   public testing::WithParamInterface<std::tuple<std::string, int>> {
 protected:
  void Do(const std::string& act) { acts_.at(act)(); }

  std::map<std::string, std::function<void()>> acts_ = {
      {"Kill", [this] { EXPECT_TRUE(channel_->Send("[\"kill\",true]")); }},
      {"Stop",
       [this] {
         if (channel_->IsRunning()) channel_->Stop();
       }},
      {"Restart", [this] { Do("Stop"), Start(); }},
      {"Detach", [this] { channel_->Detach(); }},
      {"Destroy", [this] { Do("Stop"), Do("Detach"), channel_.reset(); }},
      {"KillAndDestroy", [this] {
         Do("Kill");
         if (channel_) Do("Destroy");
       }}};
};

TEST_P(Reentrance, ThePageMayActInsideAnyText) {
  const auto [act, at] = GetParam();
  int seen = 0;
  bool acted = false;
  page_.on_text = [&, what = act, when = at](const std::string&) {
    if (seen++ != when || acted || !channel_) return;
    acted = true;
    Do(what);
  };
  // No engine, then one that dies after it spoke, then one that dies before: every text there is.
  Start();
  StartEngine();
  PumpUntil([&] { return acted || CountTexts(kReadyText) == 1; });
  if (!acted) engine_->Send("[\"qw\"]");
  if (!acted) engine_->Send("[\"text\"]");
  PumpUntil([&] { return acted || CountTexts("[\"text\"]") == 1; });
  if (!acted) engine_.reset();
  PumpUntil([&] { return acted || CountTexts(kDeadText) == 1; });
  if (!engine_) StartEngine();
  PumpUntil([&] { return acted || CountTexts(kReadyText) == 2; });
  if (!acted) engine_->DropLink();
  PumpUntil([&] { return acted || CountTexts(kDeadText) == 2; });
  EXPECT_TRUE(acted) << "there were " << page_.texts.size() << " texts";
  RunFor(2500 / kTimeScale);
  EXPECT_TRUE(!channel_ || act == "Detach" || channel_->IsRunning() == (act == "Restart"));
}

const std::string kActs[] = {"Kill", "Stop", "Restart", "Detach", "Destroy", "KillAndDestroy"};
INSTANTIATE_TEST_SUITE_P(Acts, Reentrance,
                         testing::Combine(testing::ValuesIn(kActs), testing::Range(0, 13)),
                         [](const auto& each) {
                           return std::get<0>(each.param) + "At" +
                                  std::to_string(std::get<1>(each.param));
                         });

}  // namespace
}  // namespace mpbp::test
