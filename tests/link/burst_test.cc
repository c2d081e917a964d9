// Long backlogs and memory that runs out.
#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "tests/link/linktest.h"
#include "tests/support/allocations.h"

namespace mpbp {
namespace {

using test::LinkWatcher;

size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  size_t total = 0;
  size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST(ByteBufferTest, ALongBacklogIsNotMovedForEveryBlockThatLeavesIt) {
  constexpr size_t kBlock = 4096;
  ByteBuffer buffer(std::string(8 << 20, 'x'));
  int moves = 0;
  for (int i = 0; i < 10'000; ++i) {
    const uint32_t version = buffer.GetReadPosition().version;
    ASSERT_TRUE(buffer.Consume(kBlock));
    buffer.WriteBytes(std::string(kBlock, 'y'));
    if (buffer.GetReadPosition().version != version) ++moves;
  }
  EXPECT_LT(moves, 20);  // 40 MB have passed through 8
  EXPECT_LT(buffer.Capacity(), size_t{32} << 20);
  EXPECT_EQ(buffer.Length(), size_t{8} << 20);
}

class BurstTest : public test::LinkTest {};

TEST_F(BurstTest, ItsMemoryComesBack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer keeps what is freed";
#endif
  Link();
  LinkWatcher at_client(client_.get());
  const size_t before = ResidentBytes();
  {
    const std::string text(1 << 20, 'x');
    for (int i = 0; i < 48; ++i) ASSERT_TRUE(client_->Send(text) && accepted_[0]->Send(text));
  }
  EXPECT_GT(client_->unsent_bytes(), size_t{20} << 20);
  ASSERT_TRUE(
      PumpUntil([&] { return at_client.texts.size() == 48 && at_accepted_->texts.size() == 48; }));
  at_client.texts = {};
  at_accepted_->texts = {};
  EXPECT_LT(ResidentBytes(), before + (size_t{12} << 20));
}

TEST_F(BurstTest, WhereverMemoryRunsOutTheLinkGoesOnOrEnds) {
  const std::vector<std::string> sent = {std::string(5000, 'a'), "b", std::string(100, 'c'), "d"};
  bool failing = true;
  int ended = 0;
  for (int at = 0; failing; ++at) {
    SCOPED_TRACE(at);
    MakeEnds();
    Link();
    LinkWatcher at_client(client_.get());
    for (const std::string& text : sent) ASSERT_TRUE(accepted_[0]->Send(text));
    test::has_failed = false;
    test::until_failure = at;
    for (int round = 0; round < 20; ++round) {
      try {
        thread_->ProcessMessages(1);
      } catch (const std::bad_alloc&) {
        // The loop's caller goes on, as a browser does.
      }
    }
    test::until_failure = -1;
    failing = test::has_failed;
    std::vector<std::string>& got = at_client.texts;
    ASSERT_TRUE(!accepted_[0]->Send("last") || PumpUntil([&] {
      return at_client.Saw("closed") || (!got.empty() && got.back() == "last");
    }));
    if (at_client.Saw("closed")) {
      EXPECT_EQ(at_client.close_error, ENOMEM);
      ++ended;
      continue;
    }
    // Whole texts in their order; the one that could not be handled may be missing.
    std::vector<std::string> expected = sent;
    expected.push_back("last");
    const auto [missing, text] =
        std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    if (failing && got.size() + 1 == expected.size()) got.insert(missing, *text);
    EXPECT_EQ(got, expected);
  }
  EXPECT_GT(ended, 0);
}

TEST_F(BurstTest, AHandlerThatThrowsHoldsUpNoOtherMessage) {
  Link();
  LinkWatcher at_client(client_.get());
  at_client.then = [&](const std::string& event) {
    if (event == "message" && at_client.texts.size() == 2) throw std::bad_alloc();
  };
  for (const char* text : {"one", "two", "three"}) ASSERT_TRUE(accepted_[0]->Send(text));
  ASSERT_TRUE(PumpUntil([&] { return at_client.texts.size() == 3; }));
  ASSERT_TRUE(accepted_[0]->Send("four"));
  EXPECT_TRUE(PumpUntil([&] { return at_client.texts.size() == 4; }));
}

}  // namespace
}  // namespace mpbp
