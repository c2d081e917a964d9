// What is sent, and the times that are taken.
#ifndef MPBP_BENCH_PEERS_LOAD_H_
#define MPBP_BENCH_PEERS_LOAD_H_

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "bench/peers/connection.h"

namespace mpbp::bench {

inline constexpr size_t kAnswerSize = 64;

// Windows of frames: the last frame of each is answered, and `outstanding` windows are under way. A
// round trip is a window of one frame, one at a time.
struct Load {
  size_t frame_size = 64;  // bytes of payload, at least 1
  size_t window = 1;       // frames
  size_t outstanding = 1;  // windows
  size_t windows = 1;      // that are measured; a tenth more are sent before, to warm up

  size_t warmup() const { return windows / 10; }
  std::string Frame() const { return std::string(frame_size, 'x'); }
  std::string LastFrame() const { return 'L' + std::string(frame_size - 1, 'x'); }
};

// The times from one answer to the next.
class Times {
 public:
  explicit Times(const Load& load) : load_(load) { gaps_.reserve(load.windows); }
  // True when this was the last answer that is waited for.
  bool OnAnswer();
  // One line of JSON: seconds, frames, and the median and 99th percentile of the gaps in µs.
  void Print();

 private:
  using Clock = std::chrono::steady_clock;

  const Load& load_;
  size_t answers_ = 0;
  Clock::time_point last_;
  std::vector<double> gaps_;  // µs
};

// The sending end.
class Driver : public Events {
 public:
  explicit Driver(const Load& load)
      : load_(load), frame_(load.Frame()), last_frame_(load.LastFrame()), times_(load) {}
  void OnReady(Connection& connection) override;
  void OnFrame(Connection& connection, std::string_view payload) override;
  Times& times() { return times_; }
  bool finished() const { return finished_; }

 private:
  void SendWindow(Connection& connection);

  const Load& load_;
  const std::string frame_;
  const std::string last_frame_;
  Times times_;
  bool finished_ = false;
};

// The receiving end: answers the last frame of each window with its beginning.
class Answerer : public Events {
 public:
  void OnReady(Connection&) override {}
  void OnFrame(Connection& connection, std::string_view payload) override;
  // One line of JSON: the ns of the processor that a frame took, from the first window on.
  void Print() const;

 private:
  size_t frames_ = 0;  // after the first window
  double first_ns_ = 0;
  double last_ns_ = 0;
};

// The sending end on a blocking socket, with one write for each window: what it costs to receive
// frames that come in large pieces. `receiver` is the name of the Kind at the other end, whose
// handshake and frames it speaks. False on failure, with a line on standard error.
bool DriveBatched(const std::string& receiver, const std::string& port_file, const Load& load);

}  // namespace mpbp::bench

#endif  // MPBP_BENCH_PEERS_LOAD_H_
