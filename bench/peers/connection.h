// What the ways to carry frames between two processes have in common: ours and those of others.
#ifndef MPBP_BENCH_PEERS_CONNECTION_H_
#define MPBP_BENCH_PEERS_CONNECTION_H_

#include <string>
#include <string_view>

namespace mpbp::bench {

// One end, on one thread.
class Connection {
 public:
  virtual ~Connection() = default;
  // Sends one frame; what the system does not take is kept and sent later.
  virtual void Send(const std::string& payload) = 0;
  // Ends the loop that serves the connection, soon after the call.
  virtual void Stop() = 0;
};

// What an end reports. Each may send and stop.
class Events {
 public:
  virtual ~Events() = default;
  virtual void OnReady(Connection& connection) = 0;
  // `payload` is valid during the call.
  virtual void OnFrame(Connection& connection, std::string_view payload) = 0;
};

struct Kind {
  std::string_view name;
  // Listens on 127.0.0.1, writes the port file, prints "listening" and serves one connection until
  // its peer closes it. False when that was not possible.
  bool (*serve)(const std::string& port_file, Events& events);
  // Connects to where the port file says and runs until Stop or the end of the connection.
  bool (*drive)(const std::string& port_file, Events& events);
};

bool ServeOurs(const std::string& port_file, Events& events);
bool DriveOurs(const std::string& port_file, Events& events);
// Sockets and select, with a read of 64 KiB and one of 4096 bytes, which is ours.
bool ServeRaw(const std::string& port_file, Events& events);
bool DriveRaw(const std::string& port_file, Events& events);
bool ServeRaw4096(const std::string& port_file, Events& events);
bool DriveRaw4096(const std::string& port_file, Events& events);
bool ServeUv(const std::string& port_file, Events& events);
bool DriveUv(const std::string& port_file, Events& events);
bool ServeWebSockets(const std::string& port_file, Events& events);
bool DriveWebSockets(const std::string& port_file, Events& events);

}  // namespace mpbp::bench

#endif  // MPBP_BENCH_PEERS_CONNECTION_H_
