// mpbp_rude_host MODULE STATE WAY: a browser that brings the module into the state and then ends
// the process, or closes the module's file, without PPP_ShutdownModule. Like one real browser it
// replaces close() by a function that ends the process for descriptors of its own.
//
// States: loaded, page, launch (an engine was just started), link, inside (in the page's callback),
// busy (another thread goes on using the module). Ways: exit, quick_exit, unload.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

#include "host/host.h"

namespace {

using mpbp::host::Host;
using mpbp::host::Page;

constexpr int kTimeoutMs = 30000;

int own_descriptor = -1;
// Never destroyed: the process ends around it.
Host* host = nullptr;
std::shared_ptr<Page>* page = nullptr;

[[noreturn]] void Fail(const std::string& what) {
  fprintf(stderr, "rude host: %s\n", what.c_str());
  _exit(2);
}

size_t CountDescriptors() {
  const std::filesystem::directory_iterator fds("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(fds), end(fds)));
}

bool IsMapped(const std::string& module) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(module) != std::string::npos) return true;
  }
  return false;
}

// Loads the module, and runs a page until the text that belongs to the state.
void Reach(const std::string& state, const std::string& module,
           const std::function<void()>& leave) {
  host = new Host;
  if (const auto error = host->Load(module)) Fail(*error);
  if (state == "loaded") return;
  page = new std::shared_ptr<Page>(host->CreatePage("https://www.murmel.example/"));
  if (state == "page") return;
  const std::string wanted =
      state == "launch" ? "[\"f-connect\",{\"step\":\"2\"}]" : "[\"f-ready\"]";
  // The page gets texts for as long as it is there, which is longer than this runs.
  static bool seen = false;
  (*page)->SetOnMessage([wanted, state, leave](const std::string& text) {
    seen = seen || text.starts_with(wanted);
    if (seen && state == "inside") leave();
  });
  if (!host->RunUntil([] { return seen; }, kTimeoutMs)) Fail("no " + wanted);
}

void Leave(const std::string& module, std::string_view way, size_t descriptors) {
  if (way == "exit") exit(0);
  if (way == "quick_exit") quick_exit(0);
  host->Abandon();
  if (IsMapped(module)) Fail("the module is still mapped");
  delete page;
  delete host;
  if (CountDescriptors() != descriptors) Fail("descriptors are left open");
  exit(0);
}

}  // namespace

extern "C" int close(int fd) {
  if (fd == own_descriptor) abort();
  return static_cast<int>(syscall(SYS_close, fd));
}

int main(int argc, char** argv) {
  if (argc != 4) Fail("MODULE STATE WAY");
  const std::string module = argv[1];
  const std::string state = argv[2];
  const std::string_view way = argv[3];
  // Not close-on-exec: whoever starts children closes it.
  own_descriptor = open("/dev/null", O_RDONLY);
  const auto leave = [&, descriptors = CountDescriptors()] { Leave(module, way, descriptors); };
  if (state != "busy") {
    Reach(state, module, leave);
    leave();
  }
  std::atomic<bool> busy{false};
  std::thread([&] {
    Reach(state, module, leave);
    for (;;) {
      (*page)->Get("version");
      host->RunOnce(0);
      busy = true;
    }
  }).detach();
  while (!busy) std::this_thread::yield();
  leave();
}
