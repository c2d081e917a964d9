#include "connector/standardpipes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <utility>

#include "base/descriptors.h"
#include "base/iodispatcher.h"
#include "base/logging.h"
#include "base/thread.h"

namespace mpbp {
namespace {

constexpr size_t kReadSize = size_t{64} << 10;  // what a pipe holds

// A copy of a standard stream that no program inherits and that does not block, with /dev/null in
// its place. None on failure.
UniqueFd TakeStandardStream(int stream, int null_flags) {
  UniqueFd fd(fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  const UniqueFd null(open("/dev/null", null_flags | O_CLOEXEC));
  int error = 0;
  const bool done =
      fd && null && dup2(null.get(), stream) == stream && SetNonBlocking(fd.get(), &error);
  return done ? std::move(fd) : UniqueFd();
}

}  // namespace

class StandardPipes::Pipe final : public IoDispatcher {
 public:
  Pipe(UniqueFd fd, uint32_t events, std::function<void()> on_event)
      : fd_(std::move(fd)), events_(events), on_event_(std::move(on_event)) {}

  void set_events(uint32_t events) { events_ = events; }

  uint32_t GetRequestedEvents() const override { return events_; }
  void OnPreEvent(uint32_t) override {}
  void OnEvent(uint32_t, int) override { on_event_(); }
  int GetDescriptor() const override { return fd_.get(); }
  bool IsDescriptorClosed() const override { return false; }  // what is read tells

 private:
  const UniqueFd fd_;
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
  UniqueFd input = TakeStandardStream(STDIN_FILENO, O_RDONLY);
  if (!input) return false;
  input_ = std::make_unique<Pipe>(std::move(input), EVENT_READ, [this] { OnReadable(); });
  UniqueFd output = TakeStandardStream(STDOUT_FILENO, O_WRONLY);
  if (!output) return false;
  output_ = std::make_unique<Pipe>(std::move(output), 0, [this] { OnWritable(); });
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
  // At once, rather than in the loop's next round; behind what waits already.
  if (!ended_ && output_->GetRequestedEvents() == 0) OnWritable();
}

void StandardPipes::OnWritable() {
  ByteBuffer& output = connector_->output();
  const ssize_t count = write(output_->GetDescriptor(), output.Data(), output.Length());
  if (count < 0 && errno != EAGAIN && errno != EINTR) {
    LOG_ERR(LS_ERROR) << "Standard output cannot be written";
    End(false);
    return;
  }
  if (count > 0) static_cast<void>(output.Consume(static_cast<size_t>(count)));
  output.ReleaseIfEmpty();
  output_->set_events(output.Length() > 0 ? EVENT_WRITE : 0);
}

void StandardPipes::End(bool well) {
  if (!ended_) ended_well_ = well;
  ended_ = true;
  input_->set_events(0);
  output_->set_events(0);
  Thread::Current()->Quit();
}

}  // namespace mpbp
