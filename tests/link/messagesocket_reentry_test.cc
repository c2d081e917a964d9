// Handlers of a message socket that close it, delete it, or run the loop again.
#include <gmock/gmock.h>

#include "tests/link/linktest.h"

namespace mpbp {
namespace {

using test::LinkWatcher;
using testing::ElementsAre;

enum class Act { kClose, kDelete };

class ReentryTest : public test::LinkTest,
                    public testing::WithParamInterface<std::tuple<std::string, Act>> {
 protected:
  std::string event() const { return std::get<0>(GetParam()); }
  bool deletes() const { return std::get<1>(GetParam()) == Act::kDelete; }
};

class ClientReentryTest : public ReentryTest {};
class AcceptedReentryTest : public ReentryTest {};

std::string CaseName(const testing::TestParamInfo<ReentryTest::ParamType>& test) {
  std::string name = std::get<0>(test.param);
  std::replace(name.begin(), name.end(), ' ', '_');
  return name + (std::get<1>(test.param) == Act::kClose ? "_close" : "_delete");
}

INSTANTIATE_TEST_SUITE_P(InEveryHandler, ClientReentryTest,
                         testing::Combine(testing::Values("port file", "connected", "authorized",
                                                          "message", "closed"),
                                          testing::Values(Act::kClose, Act::kDelete)),
                         CaseName);
INSTANTIATE_TEST_SUITE_P(InEveryHandler, AcceptedReentryTest,
                         testing::Combine(testing::Values("authorized", "message", "closed"),
                                          testing::Values(Act::kClose, Act::kDelete)),
                         CaseName);

TEST_P(ClientReentryTest, TheClientMayBeClosedOrDeleted) {
  const int descriptors = test::OpenDescriptors();
  ASSERT_TRUE(listener_->Listen());
  LinkWatcher watcher(client_.get());
  watcher.then = [this](const std::string& seen) {
    if (seen != event()) return;
    client_->Close();
    if (deletes()) client_.reset();
  };
  const bool connecting = client_->Connect(nullptr);
  EXPECT_EQ(connecting, event() != "port file");
  if (connecting) {
    ASSERT_TRUE(PumpUntil([&] {
      if (!accepted_.empty() && accepted_[0]->authorized()) {
        // Two in one frame list: the second is not for a link that is over.
        static_cast<void>(accepted_[0]->Send("one"));
        static_cast<void>(accepted_[0]->Send("two"));
        if (event() == "closed") accepted_[0]->Close();
      }
      return watcher.Saw(event());
    }));
  }
  Drain();
  EXPECT_EQ(watcher.events.back(), event());
  if (event() == "message") {
    EXPECT_THAT(watcher.texts, ElementsAre("one"));
  }
  if (client_) {
    EXPECT_EQ(client_->state(), MessageSocket::STATE_CLOSED);
    EXPECT_FALSE(client_->Send("x"));
  }
  accepted_.clear();
  listener_->Close();
  EXPECT_TRUE(PumpUntil([&] { return test::OpenDescriptors() == descriptors; }));
}

TEST_P(AcceptedReentryTest, TheAcceptedEndMayBeClosedOrDeleted) {
  const int descriptors = test::OpenDescriptors();
  accepted_then_ = [this](const std::string& seen) {
    if (seen != event()) return;
    accepted_[0]->Close();
    if (deletes()) accepted_.clear();
  };
  ASSERT_TRUE(listener_->Listen());
  ASSERT_TRUE(client_->Connect(nullptr));
  ASSERT_TRUE(client_->Send("one"));
  ASSERT_TRUE(client_->Send("two"));
  ASSERT_TRUE(PumpUntil([&] {
    if (!at_accepted_) return false;
    if (event() == "closed" && at_accepted_->Saw("message")) client_->Close();
    return at_accepted_->Saw(event());
  }));
  Drain();
  EXPECT_EQ(at_accepted_->events.back(), event());
  client_->Close();
  accepted_.clear();
  listener_->Close();
  EXPECT_TRUE(PumpUntil([&] { return test::OpenDescriptors() == descriptors; }));
}

class NestingTest : public test::LinkTest {};

TEST_F(NestingTest, TheListenerMayBeDeletedWhenItAccepts) {
  class Deleter : public SlotOwner {
   public:
    explicit Deleter(std::unique_ptr<PluginMessageSocket>* listener) : listener_(listener) {}
    void OnAccepted(MessageSocket*, std::unique_ptr<MessageSocket>&) { listener_->reset(); }

   private:
    std::unique_ptr<PluginMessageSocket>* listener_;
  } deleter(&listener_);
  ASSERT_TRUE(listener_->Listen());
  listener_->SignalAccepted.DisconnectAll();
  listener_->SignalAccepted.Connect(&deleter, &Deleter::OnAccepted);
  LinkWatcher watcher(client_.get());
  ASSERT_TRUE(client_->Connect(nullptr));
  EXPECT_TRUE(PumpUntil([&] { return watcher.Saw("closed"); }));
  EXPECT_EQ(listener_, nullptr);
  EXPECT_EQ(test::FileMode(path_), -1);
}

TEST_F(NestingTest, AClosedHandlerMayConnectAgain) {
  Link();
  LinkWatcher watcher(client_.get());
  watcher.then = [this](const std::string& event) {
    if (event != "closed") return;
    client_->Close();
    EXPECT_TRUE(client_->Connect(nullptr));
  };
  accepted_[0]->Close();
  EXPECT_TRUE(PumpUntil([&] { return watcher.Saw("authorized"); }));
}

TEST_F(NestingTest, AMessageHandlerThatRunsTheLoopIsNotEnteredAgain) {
  Link();
  LinkWatcher watcher(client_.get());
  int depth = 0;
  int deepest = 0;
  watcher.then = [&](const std::string&) {
    deepest = std::max(deepest, ++depth);
    if (watcher.texts.size() == 1) {
      ASSERT_TRUE(accepted_[0]->Send("meanwhile"));
      Drain();
    }
    --depth;
  };
  ASSERT_TRUE(accepted_[0]->Send("first"));
  ASSERT_TRUE(PumpUntil([&] { return watcher.Saw("message"); }));
  // What came meanwhile is handed out with what the next read brings.
  ASSERT_TRUE(accepted_[0]->Send("last"));
  ASSERT_TRUE(PumpUntil([&] { return watcher.texts.size() == 3; }));
  EXPECT_THAT(watcher.texts, ElementsAre("first", "meanwhile", "last"));
  EXPECT_EQ(deepest, 1);
}

}  // namespace
}  // namespace mpbp
