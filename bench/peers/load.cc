#include "bench/peers/load.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <numeric>

namespace mpbp::bench {
namespace {

double CpuNs() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

}  // namespace

bool Times::OnAnswer() {
  const Clock::time_point now = Clock::now();
  // The first gap that counts ends with the answer after those that warm up, and the first answer
  // of all only begins one.
  if (answers_ > load_.warmup()) {
    gaps_.push_back(std::chrono::duration<double, std::micro>(now - last_).count());
  }
  last_ = now;
  ++answers_;
  return gaps_.size() == load_.windows;
}

void Times::Print() {
  const double total = std::accumulate(gaps_.begin(), gaps_.end(), 0.0);
  std::sort(gaps_.begin(), gaps_.end());
  printf("{\"seconds\": %.6f, \"frames\": %zu, \"p50_us\": %.3f, \"p99_us\": %.3f}\n", total / 1e6,
         gaps_.size() * load_.window, gaps_[gaps_.size() / 2], gaps_[gaps_.size() * 99 / 100]);
}

void Driver::OnReady(Connection& connection) {
  for (size_t i = 0; i < load_.outstanding; ++i) SendWindow(connection);
}

void Driver::OnFrame(Connection& connection, std::string_view) {
  if (finished_) return;
  finished_ = times_.OnAnswer();
  if (finished_) {
    connection.Stop();
  } else {
    SendWindow(connection);
  }
}

void Driver::SendWindow(Connection& connection) {
  for (size_t i = 1; i < load_.window; ++i) connection.Send(frame_);
  connection.Send(last_frame_);
}

void Answerer::OnFrame(Connection& connection, std::string_view payload) {
  if (first_ns_ > 0) ++frames_;
  if (!payload.starts_with('L')) return;
  connection.Send(std::string(payload.substr(0, kAnswerSize)));
  last_ns_ = CpuNs();
  if (first_ns_ == 0) first_ns_ = last_ns_;
}

void Answerer::Print() const {
  const double frames = static_cast<double>(std::max<size_t>(1, frames_));
  printf("{\"cpu_ns\": %.1f}\n", (last_ns_ - first_ns_) / frames);
}

}  // namespace mpbp::bench
