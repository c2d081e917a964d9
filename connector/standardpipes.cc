#include "connector/standardpipes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <utility>

#include "base/iodispatcher.h"
#include "base/logging.h"
#include "base/thread.h"

namespace mpbp {
namespace {

constexpr size_t kReadSize = size_t{64} << 10;  // what a pipe holds

// A copy of a standard stream that no program inherits and that does not block, with /dev/null in
// its place. -1 on failure.
int TakeStandardStream(int stream, int null_flags) {
  const int fd = fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (fd < 0) return -1;
  const int null = open("/dev/null", null_flags | O_CLOEXEC);
  const int flags = fcntl(fd, F_GETFL);
  const bool done = null >= 0 && dup2(null, stream) == stream && flags >= 0 &&
                    fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
  if (null >= 0) close(null);
  if (done) return fd;
  close(fd);
  return -1;
}

}  // namespace

class StandardPipes::Pipe final : public IoDispatcher {
 public:
  Pipe(int fd, uint32_t events, std::function<void()> on_event)
      : fd_(fd), events_(events), on_event_(std::move(on_event)) {}
  ~Pipe() override { close(fd_); }

  void set_events(uint32_t events) { events_ = events; }

  uint32_t GetRequestedEvents() const override { return events_; }
  void OnPreEvent(uint32_t) override {}
  void OnEvent(uint32_t, int) override { on_event_(); }
  int GetDescriptor() const override { return fd_; }
  bool IsDescriptorClosed() const override { return false; }  // what is read tells

 private:
  const int fd_;
  uint32_t events_;
  const std::function<void()> on_event_;
};

StandardPipes::StandardPipes(PhysicalSocketServer* server, Connector* connector)
    : server_(server), connector_(connector) {}

StandardPipes::~StandardPipes() {
  if (input_) server_->Remove(input_.get());
  if (output_) server_->Remove(output_.get());
}

bool StandardPipes::Open() {
  const int input = TakeStandardStream(STDIN_FILENO, O_RDONLY);
  if (input < 0) return false;
  input_ = std::make_unique<Pipe>(input, EVENT_READ, [this] { OnReadable(); });
  const int output = TakeStandardStream(STDOUT_FILENO, O_WRONLY);
  if (output < 0) return false;
  output_ = std::make_unique<Pipe>(output, 0, [this] { OnWritable(); });
  connector_->SignalOutput.Connect(this, &StandardPipes::OnOutput);
  return server_->Add(input_.get()) && server_->Add(output_.get());
}

void StandardPipes::OnReadable() {
  char bytes[kReadSize];
  const ssize_t count = read(input_->GetDescriptor(), bytes, sizeof(bytes));
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count < 0) LOG_ERR(LS_ERROR) << "Standard input cannot be read";
  if (count <= 0) {
    End(count == 0);
  } else if (!connector_->TakeInput({bytes, static_cast<size_t>(count)})) {
    End(false);
  }
}

void StandardPipes::OnOutput() {
  // What is written meanwhile goes with it: one write for many objects.
  output_->set_events(EVENT_WRITE);
}

void StandardPipes::OnWritable() {
  ByteBuffer& output = connector_->output();
  const ssize_t count = write(output_->GetDescriptor(), output.Data(), output.Length());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count < 0) {
    LOG_ERR(LS_ERROR) << "Standard output cannot be written";
    End(false);
    return;
  }
  static_cast<void>(output.Consume(static_cast<size_t>(count)));
  output.ReleaseIfEmpty();
  if (output.Length() == 0) output_->set_events(0);
}

void StandardPipes::End(bool well) {
  if (!ended_) ended_well_ = well;
  ended_ = true;
  input_->set_events(0);
  output_->set_events(0);
  Thread::Current()->Quit();
}

}  // namespace mpbp
