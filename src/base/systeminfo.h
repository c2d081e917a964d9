// What the machine is: processor, memory, model. For the description lines at the log's start.
#ifndef MPBP_BASE_SYSTEMINFO_H_
#define MPBP_BASE_SYSTEMINFO_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace mpbp {

// From the text of /proc/cpuinfo, which has one section for each logical processor (a hardware
// thread). A number that is missing or malformed is 0.
struct CpuInfo {
  int family = 0;  // of the first section, as are model and stepping
  int model = 0;
  int stepping = 0;
  int processors = 0;  // sections, that is logical processors that are online
  int mhz = 0;         // the first section's current speed, rounded down
};

CpuInfo ParseCpuInfo(std::string_view cpuinfo);

struct SystemInfo {
  CpuInfo cpu;
  // From cpufreq's cpuinfo_max_freq, which is in kHz; cpu.mhz where there is no such file.
  int max_cpu_mhz = 0;
  int64_t memory_bytes = 0;  // 0 when the system does not say
  std::string model;         // of the machine; "Not available" when it is unknown

  // Reads a few small files of /proc and /sys. From any thread.
  static SystemInfo Gather();
};

}  // namespace mpbp

#endif  // MPBP_BASE_SYSTEMINFO_H_
