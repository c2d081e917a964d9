// Sockets and select, as lean as it gets: what everything else is measured against.
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "bench/peers/connection.h"
#include "bench/peers/sockets.h"

namespace mpbp::bench {
namespace {

class RawConnection : public Connection {
 public:
  RawConnection(UniqueFd fd, size_t read_size) : fd_(std::move(fd)), buffer_(read_size) {}

  void Send(const std::string& payload) override {
    AppendFrame(payload, output_);
    Flush();
  }
  void Stop() override { stopped_ = true; }

  bool Run(Events& events) {
    if (!fd_ || fcntl(fd_.get(), F_SETFL, O_NONBLOCK) != 0) return false;
    events.OnReady(*this);
    while (!stopped_) {
      fd_set readable;
      fd_set writable;
      FD_ZERO(&readable);
      FD_ZERO(&writable);
      FD_SET(fd_.get(), &readable);
      if (!output_.empty()) FD_SET(fd_.get(), &writable);
      if (select(fd_.get() + 1, &readable, &writable, nullptr, nullptr) < 0) return false;
      if (FD_ISSET(fd_.get(), &writable)) Flush();
      if (FD_ISSET(fd_.get(), &readable) && !Read(events)) return true;
    }
    return true;
  }

 private:
  // False at the end of the connection.
  bool Read(Events& events) {
    const ssize_t count = recv(fd_.get(), buffer_.data(), buffer_.size(), 0);
    if (count < 0 && errno == EAGAIN) return true;
    if (count <= 0) return false;
    reader_.Feed({buffer_.data(), static_cast<size_t>(count)},
                 [&](std::string_view payload) { events.OnFrame(*this, payload); });
    return true;
  }

  void Flush() {
    const ssize_t sent =
        send(fd_.get(), output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
    if (sent > 0) sent_ += static_cast<size_t>(sent);
    if (sent_ < output_.size()) return;
    output_.clear();
    sent_ = 0;
  }

  UniqueFd fd_;
  std::vector<char> buffer_;
  FrameReader reader_;
  std::string output_;
  size_t sent_ = 0;  // bytes of output_ that the system has taken
  bool stopped_ = false;
};

constexpr size_t kLargeRead = 65536;
constexpr size_t kOurRead = 4096;

}  // namespace

bool ServeRaw(const std::string& port_file, Events& events) {
  return RawConnection(AcceptOne(port_file), kLargeRead).Run(events);
}

bool DriveRaw(const std::string& port_file, Events& events) {
  return RawConnection(ConnectTo(port_file), kLargeRead).Run(events);
}

bool ServeRaw4096(const std::string& port_file, Events& events) {
  return RawConnection(AcceptOne(port_file), kOurRead).Run(events);
}

bool DriveRaw4096(const std::string& port_file, Events& events) {
  return RawConnection(ConnectTo(port_file), kOurRead).Run(events);
}

}  // namespace mpbp::bench
