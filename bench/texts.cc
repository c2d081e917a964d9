// mpbp-texts MODULE SIZE...: a page that exchanges texts of these sizes (bytes, 1000 or more) with
// the stand-in engine. Prints a line of JSON for each size: the µs of the processor that a send and
// a received text cost the browser's process (null where the engine sends none of that size), the
// ms until an echo is back, and by how many times its size the process grew meanwhile, at the most.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

using mpbp::host::Host;
using mpbp::host::Page;

constexpr int kDeadlineMs = 120'000;
constexpr size_t kSmallest = 1000;          // bytes: the texts about the link are shorter
constexpr size_t kEngineLimit = 64 << 20;   // bytes that one request makes the stand-in engine send
constexpr size_t kBytesInARow = 4'000'000;  // of small texts, to see what one costs
constexpr size_t kTextsInARow = 1000;

double ClockMs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double CpuMs() { return ClockMs(CLOCK_PROCESS_CPUTIME_ID); }

// Bytes of "VmRSS" or "VmHWM", the most since ForgetPeak.
double MemoryBytes(const std::string& what) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(what)) return strtod(line.c_str() + what.size() + 1, nullptr) * 1024;
  }
  return 0;
}

void ForgetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

class Texts {
 public:
  explicit Texts(Host& host) : host_(host), page_(host.CreatePage("https://www.murmel.example/")) {
    page_->SetOnMessage([this](const std::string& text) {
      if (text == "[\"f-ready\"]") ready_ = true;
      if (text.size() >= kSmallest) ++received_;
    });
  }

  bool WaitUntilReady() {
    return host_.RunUntil([this] { return ready_; }, kDeadlineMs);
  }

  // False when something did not come back.
  bool Measure(size_t size) {
    const size_t count = std::max<size_t>(1, std::min(kTextsInARow, kBytesInARow / size));
    const std::string text = R"(["echo",")" + std::string(size - 11, 'x') + R"("])";
    const double before = MemoryBytes("VmRSS");
    ForgetPeak();
    const double start = ClockMs(CLOCK_MONOTONIC);
    if (!Send(text) || !Wait(1)) return false;
    const double echo = ClockMs(CLOCK_MONOTONIC) - start;
    const double growth = (MemoryBytes("VmHWM") - before) / static_cast<double>(size);

    const double send_start = CpuMs();
    for (size_t i = 0; i < count; ++i) {
      if (!Send(text)) return false;
    }
    const double send = CpuMs() - send_start;
    if (!Wait(count)) return false;

    std::string receive = "null";
    if (size * count <= kEngineLimit) {
      const double receive_start = CpuMs();
      if (!Send("[\"many\"," + std::to_string(count) + "," + std::to_string(size) + "]") ||
          !Wait(count)) {
        return false;
      }
      receive = std::to_string((CpuMs() - receive_start) * 1e3 / static_cast<double>(count));
    }
    printf(
        "{\"size\": %zu, \"send_us\": %.3f, \"receive_us\": %s, \"echo_ms\": %.3f, "
        "\"growth\": %.3f}\n",
        size, send * 1e3 / static_cast<double>(count), receive.c_str(), echo, growth);
    return fflush(stdout) == 0;
  }

 private:
  bool Send(const std::string& text) { return !page_->Send(text).exception; }

  bool Wait(size_t texts) {
    const bool all = host_.RunUntil([&] { return received_ == texts; }, kDeadlineMs);
    received_ = 0;
    return all;
  }

  Host& host_;
  std::shared_ptr<Page> page_;
  bool ready_ = false;
  size_t received_ = 0;
};

bool MeasureAll(Host& host, const std::vector<size_t>& sizes) {
  Texts texts(host);
  if (!texts.WaitUntilReady()) return false;
  for (const size_t size : sizes) {
    if (!texts.Measure(size)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<size_t> sizes;
  for (int i = 2; i < argc; ++i) sizes.push_back(strtoul(argv[i], nullptr, 10));
  if (sizes.empty() || *std::min_element(sizes.begin(), sizes.end()) < kSmallest) {
    fprintf(stderr, "usage: mpbp-texts MODULE SIZE...\n");
    return 2;
  }
  Host host;
  if (const auto error = host.Load(argv[1])) {
    fprintf(stderr, "%s\n", error->c_str());
    return 1;
  }
  const bool measured = MeasureAll(host, sizes);
  if (!measured) fprintf(stderr, "a text was refused or did not come back\n");
  host.Unload();
  return measured ? 0 : 1;
}
