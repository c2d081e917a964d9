// mpbp-peers serve KIND PORT-FILE
// mpbp-peers drive KIND PORT-FILE SIZE WINDOW OUTSTANDING WINDOWS
// mpbp-peers batch KIND PORT-FILE SIZE WINDOW OUTSTANDING WINDOWS
// One end of a connection that is measured; see load.h. "batch" sends to an end of that kind, each
// window in one write. Each end prints a line of JSON when it is done.
#include <signal.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/peers/connection.h"
#include "bench/peers/load.h"

namespace {

using mpbp::bench::Kind;

constexpr Kind kKinds[] = {
    {"ours", mpbp::bench::ServeOurs, mpbp::bench::DriveOurs},
    {"raw", mpbp::bench::ServeRaw, mpbp::bench::DriveRaw},
    {"raw-4096", mpbp::bench::ServeRaw4096, mpbp::bench::DriveRaw4096},
    {"libuv", mpbp::bench::ServeUv, mpbp::bench::DriveUv},
    {"libwebsockets", mpbp::bench::ServeWebSockets, mpbp::bench::DriveWebSockets},
};

bool Run(const std::string& role, const Kind& kind, const std::string& port_file,
         const mpbp::bench::Load& load) {
  if (role == "serve") {
    mpbp::bench::Answerer answerer;
    const bool served = kind.serve(port_file, answerer);
    answerer.Print();
    return served;
  }
  if (role == "batch") return DriveBatched(std::string(kind.name), port_file, load);
  mpbp::bench::Driver driver(load);
  if (!kind.drive(port_file, driver) || !driver.finished()) return false;
  driver.times().Print();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);  // the sending end leaves when it has seen enough
  const std::string role = argc > 1 ? argv[1] : "";
  const bool serves = role == "serve";
  if ((serves && argc == 4) || ((role == "drive" || role == "batch") && argc == 8)) {
    std::array<size_t, 4> numbers = {1, 1, 1, 1};
    bool good = true;
    for (int i = 4; i < argc; ++i) {
      numbers[static_cast<size_t>(i - 4)] = strtoul(argv[i], nullptr, 10);
      good = good && numbers[static_cast<size_t>(i - 4)] > 0;
    }
    const mpbp::bench::Load load{numbers[0], numbers[1], numbers[2], numbers[3]};
    for (const Kind& kind : kKinds) {
      if (good && kind.name == argv[2]) return Run(role, kind, argv[3], load) ? 0 : 1;
    }
  }
  fprintf(stderr,
          "usage: mpbp-peers serve KIND PORT-FILE\n"
          "       mpbp-peers drive|batch KIND PORT-FILE SIZE WINDOW OUTSTANDING WINDOWS\n"
          "KIND is ours, raw, raw-4096, libuv or libwebsockets.\n");
  return 2;
}
