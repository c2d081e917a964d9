// mpbp-pages MODULE PAGES: a browser process that opens so many pages in one moment. Prints
// "ready MS" when the engine is ready for all of them, counted from the first page, then
// "again MS" each time all have lost it and are ready again, counted from the first "f-dead". Ends
// at the end of its standard input.
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

using Clock = std::chrono::steady_clock;
using mpbp::host::Host;
using mpbp::host::Page;

struct Tally {
  size_t ready = 0;  // pages that are ready now
  size_t dead = 0;   // "f-dead" texts since all were ready
  Clock::time_point first_dead;

  void Note(const std::string& text) {
    if (text == "[\"f-ready\"]") ++ready;
    if (text != "[\"f-dead\"]") return;
    if (dead++ == 0) first_dead = Clock::now();
    --ready;
  }
};

long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

void Say(const char* what, Clock::time_point since) {
  printf("%s %lld\n", what, MsSince(since));
  fflush(stdout);
}

bool InputEnded() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  char byte = 0;
  return poll(&input, 1, 0) > 0 && read(STDIN_FILENO, &byte, 1) <= 0;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t count = argc == 3 ? strtoul(argv[2], nullptr, 10) : 0;
  if (count == 0) {
    fprintf(stderr, "usage: mpbp-pages MODULE PAGES\n");
    return 2;
  }
  Host host;
  if (const auto error = host.Load(argv[1])) {
    fprintf(stderr, "%s\n", error->c_str());
    return 1;
  }
  Tally tally;
  std::vector<std::shared_ptr<Page>> pages;
  const Clock::time_point start = Clock::now();
  for (size_t i = 0; i < count; ++i) {
    pages.push_back(host.CreatePage("https://www.murmel.example/"));
    pages.back()->SetOnMessage([&tally](const std::string& text) { tally.Note(text); });
  }
  bool told = false;
  while (!InputEnded()) {
    host.RunUntil([&] { return tally.ready == count && (!told || tally.dead > 0); }, 100);
    if (tally.ready != count) continue;
    if (!told) Say("ready", start);
    if (tally.dead > 0) Say("again", tally.first_dead);
    tally.dead = 0;
    told = true;
  }
  pages.clear();
  host.Unload();
  return host.Misuse().empty() ? 0 : 1;
}
