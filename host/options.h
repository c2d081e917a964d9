#ifndef MPBP_HOST_OPTIONS_H_
#define MPBP_HOST_OPTIONS_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace mpbp::host {

// The private interface, which a public browser does not have.
struct ParlOptions {
  bool offer_1_0 = false;
  bool offer_2_0 = false;
  // What the calls return; with anything but -1 their callback never runs.
  int32_t permission_return = -1;
  int32_t start_return = -1;
  int32_t stop_return = -1;
  // What their callbacks are given, after `delay_ms`. A permission of 1 is granted.
  int32_t permission_result = 1;
  int32_t start_result = 0;
  int32_t stop_result = 0;
  int32_t delay_ms = 0;
};

// May be changed at any time; counts from the next call of the module on.
struct HostOptions {
  // Browser interfaces, by name, that this browser lacks.
  std::set<std::string> withheld;
  // Certificates to trust instead of the system's.
  std::string ca_file;
  // "HOST:PORT:TOHOST:TOPORT": who asks for the first is connected to the second, which has to
  // answer in the first one's name. An empty part stands for any, or for no change.
  std::vector<std::string> connect_to;
  int64_t connect_timeout_ms = 30000;
  int64_t http_timeout_ms = 0;  // for a whole request; 0: none
  // Open and ReadResponseBody wait for the network and return their result, the callback unused.
  bool complete_reads_at_once = false;
  // Open, ReadResponseBody, the private service and CallOnMainThread without a delay run their
  // callback inside the call, and then say that it is pending.
  bool complete_inside = false;
  // CallOnMainThread waits no longer than this: timers run faster.
  int32_t longest_delay_ms = std::numeric_limits<int32_t>::max();
  // CallOnMainThread with a delay never runs its callback: timers stand still.
  bool no_timers = false;
  // Runs inside every call of this browser's tables, before anything is done, with its name. It may
  // do what script or a nested loop could.
  std::function<void(const char* name)> on_call;
  // What is still posted when the module is unloaded never runs; otherwise it runs late.
  bool drop_pending = false;
  // An instance's objects go with it, even those that script or the module still refers to.
  bool force_deallocate = false;
  ParlOptions parl;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_OPTIONS_H_
