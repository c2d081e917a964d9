// The same frames on libuv.
#include <uv.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/peers/connection.h"
#include "bench/peers/sockets.h"

namespace mpbp::bench {
namespace {

constexpr size_t kReadSize = 65536;  // what the library suggests to its callers

class UvConnection : public Connection {
 public:
  explicit UvConnection(UniqueFd fd) : buffer_(kReadSize) {
    uv_loop_init(&loop_);
    uv_tcp_init(&loop_, &tcp_);
    tcp_.data = this;
    open_ = fd && uv_tcp_open(&tcp_, fd.Release()) == 0;
  }
  ~UvConnection() override {
    uv_close(reinterpret_cast<uv_handle_t*>(&tcp_), nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
  }

  void Send(const std::string& payload) override {
    std::string frame;
    AppendFrame(payload, frame);
    uv_buf_t bytes = uv_buf_init(frame.data(), static_cast<unsigned>(frame.size()));
    const int taken = uv_try_write(stream(), &bytes, 1);
    if (taken == static_cast<int>(frame.size())) return;
    auto write = std::make_unique<Write>();
    write->rest = taken > 0 ? frame.substr(static_cast<size_t>(taken)) : std::move(frame);
    bytes = uv_buf_init(write->rest.data(), static_cast<unsigned>(write->rest.size()));
    uv_write_t* const request = &write.release()->request;  // OnWritten deletes it
    if (uv_write(request, stream(), &bytes, 1, &OnWritten) != 0) OnWritten(request, 0);
  }
  void Stop() override { uv_stop(&loop_); }

  bool Run(Events& events) {
    events_ = &events;
    if (!open_ || uv_read_start(stream(), &OnAlloc, &OnRead) != 0) return false;
    events.OnReady(*this);
    uv_run(&loop_, UV_RUN_DEFAULT);
    return true;
  }

 private:
  struct Write {
    uv_write_t request;  // first: the library hands it back
    std::string rest;
  };

  static void OnAlloc(uv_handle_t* handle, size_t, uv_buf_t* out) {
    auto* const self = static_cast<UvConnection*>(handle->data);
    *out = uv_buf_init(self->buffer_.data(), kReadSize);
  }
  static void OnRead(uv_stream_t* handle, ssize_t count, const uv_buf_t* bytes) {
    auto* const self = static_cast<UvConnection*>(handle->data);
    if (count < 0) self->Stop();
    if (count <= 0) return;
    self->reader_.Feed({bytes->base, static_cast<size_t>(count)},
                       [&](std::string_view payload) { self->events_->OnFrame(*self, payload); });
  }
  static void OnWritten(uv_write_t* request, int) { delete reinterpret_cast<Write*>(request); }
  uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&tcp_); }

  uv_loop_t loop_;
  uv_tcp_t tcp_;
  bool open_ = false;
  std::vector<char> buffer_;
  FrameReader reader_;
  Events* events_ = nullptr;  // borrowed by Run
};

}  // namespace

bool ServeUv(const std::string& port_file, Events& events) {
  return UvConnection(AcceptOne(port_file)).Run(events);
}

bool DriveUv(const std::string& port_file, Events& events) {
  return UvConnection(ConnectTo(port_file)).Run(events);
}

}  // namespace mpbp::bench
