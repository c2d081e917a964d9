#include "bench/micro/loops.h"

#include <sys/select.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace mpbp::bench {
namespace {

void Check(bool good, const char* what) {
  if (good) return;
  perror(what);
  exit(1);
}

}  // namespace

OurLoop::OurLoop(NumberHandler handler) : handler_(std::move(handler)) {
  Check(thread_.Start(), "thread");
}

RawLoop::RawLoop(NumberHandler handler) : queue_(std::move(handler)), pipe_(MakePipe(0, nullptr)) {
  Check(static_cast<bool>(pipe_.read_end), "pipe");
  thread_ = std::thread([this] { Run(); });
}

RawLoop::~RawLoop() {
  pipe_.write_end.Reset();
  thread_.join();
}

void RawLoop::Post(uint32_t number) {
  if (queue_.Push(number)) Check(write(pipe_.write_end.get(), "", 1) == 1, "write");
}

void RawLoop::Run() {
  const int fd = pipe_.read_end.get();
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    Check(select(fd + 1, &readable, nullptr, nullptr, nullptr) == 1, "select");
    char bytes[16];
    if (read(fd, bytes, sizeof(bytes)) == 0) return;
    queue_.Run();
  }
}

UvLoop::UvLoop(NumberHandler handler) : queue_(std::move(handler)) {
  uv_loop_init(&loop_);
  wake_up_.data = this;
  const uv_async_cb on_wake_up = [](uv_async_t* handle) {
    auto* const self = static_cast<UvLoop*>(handle->data);
    self->queue_.Run();
    if (self->stopped_) uv_stop(&self->loop_);
  };
  Check(uv_async_init(&loop_, &wake_up_, on_wake_up) == 0, "uv_async_init");
  thread_ = std::thread([this] { uv_run(&loop_, UV_RUN_DEFAULT); });
}

UvLoop::~UvLoop() {
  stopped_ = true;
  uv_async_send(&wake_up_);
  thread_.join();
  uv_close(reinterpret_cast<uv_handle_t*>(&wake_up_), nullptr);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

void UvLoop::Post(uint32_t number) {
  if (queue_.Push(number)) uv_async_send(&wake_up_);
}

WebSocketsLoop::WebSocketsLoop(NumberHandler handler) : queue_(std::move(handler)) {
  static constexpr lws_protocols kProtocols[] = {
      {"bench", &OnEvent, 0, 0, 0, nullptr, 0},
      {nullptr, nullptr, 0, 0, 0, nullptr, 0},
  };
  lws_set_log_level(LLL_ERR, nullptr);
  lws_context_creation_info info = {};
  info.port = CONTEXT_PORT_NO_LISTEN;
  info.protocols = kProtocols;
  info.user = this;
  context_ = lws_create_context(&info);
  Check(context_ != nullptr, "lws_create_context");
  thread_ = std::thread([this] {
    while (!stopped_ && lws_service(context_, 0) >= 0) continue;
  });
}

WebSocketsLoop::~WebSocketsLoop() {
  stopped_ = true;
  lws_cancel_service(context_);
  thread_.join();
  lws_context_destroy(context_);
}

void WebSocketsLoop::Post(uint32_t number) {
  if (queue_.Push(number)) lws_cancel_service(context_);
}

int WebSocketsLoop::OnEvent(lws* connection, lws_callback_reasons reason, void*, void*, size_t) {
  if (reason == LWS_CALLBACK_EVENT_WAIT_CANCELLED) {
    static_cast<WebSocketsLoop*>(lws_context_user(lws_get_context(connection)))->queue_.Run();
  }
  return 0;
}

}  // namespace mpbp::bench
