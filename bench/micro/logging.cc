// Log lines and what is done to a text before it is logged. "raw" is the work that remains without
// us: the write, or the copy.
#include "base/logging.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "base/filestream.h"
#include "base/uniquefd.h"
#include "logutility.h"

namespace {

constexpr int kLines = 50'000;
constexpr char kText[] =
    "0x55d0c8a6e2f0: C->F [\"call\",{\"id\":17,\"to\":\"somebody\",\"video\":true}]";
constexpr size_t kStamp = sizeof("[012:345] ") - 1;

// A file that is gone with the object.
class ScratchFile {
 public:
  ScratchFile() {
    const mpbp::UniqueFd fd(mkostemp(path_.data(), O_CLOEXEC));
    if (fd) return;
    perror("mkostemp");
    exit(1);
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/tmp/mpbp-bench-XXXXXX";
};

void BM_log_off(benchmark::State& state) {
  mpbp::LogMessage::LogToStream(nullptr, mpbp::LS_NONE);
  for ([[maybe_unused]] auto _ : state) LOG(LS_INFO) << kText;
}

// To a file alone, set up as the plug-in does.
void BM_log_on(benchmark::State& state) {
  const ScratchFile file;
  auto stream = std::make_shared<mpbp::FileStream>();
  int error = 0;
  if (!stream->Open(file.path(), "wb", &error) || !stream->DisableBuffering()) {
    state.SkipWithError("the log file cannot be opened");
    return;
  }
  mpbp::LogMessage::LogTimestamps(true);
  mpbp::LogMessage::LogToStream(stream, mpbp::LS_INFO);
  for ([[maybe_unused]] auto _ : state) LOG(LS_INFO) << kText;
  mpbp::LogMessage::LogToStream(nullptr, mpbp::LS_NONE);
}

void BM_write(benchmark::State& state) {
  const ScratchFile file;
  const mpbp::UniqueFd fd(open(file.path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const std::string line = std::string(kStamp, '0') + kText + "\n";
  for ([[maybe_unused]] auto _ : state) {
    if (write(fd.get(), line.data(), line.size()) < 0) state.SkipWithError("write");
  }
}

std::string Text(size_t size) {
  std::string text = R"(["call",{"id":17,"text":")";
  return text.append(size - text.size(), 'x');
}

void BM_redaction(benchmark::State& state) {
  const std::string text = Text(static_cast<size_t>(state.range(0)));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(mpbp::RedactMessage(text));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_copy(benchmark::State& state) {
  const std::string text = Text(static_cast<size_t>(state.range(0)));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(std::string(text));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_log_off)->Name("log off/ours");
BENCHMARK(BM_log_on)->Iterations(kLines)->Name("log on/ours");
BENCHMARK(BM_write)->Iterations(kLines)->Name("log on/raw");
BENCHMARK(BM_redaction)->Arg(64)->Name("redaction/ours");
BENCHMARK(BM_copy)->Arg(64)->Name("redaction/raw");
BENCHMARK(BM_redaction)->Arg(1'000'000)->Name("redaction/ours");
BENCHMARK(BM_copy)->Arg(1'000'000)->Name("redaction/raw");

}  // namespace

BENCHMARK_MAIN();
