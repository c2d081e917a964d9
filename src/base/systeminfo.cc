#include "base/systeminfo.h"

#include <unistd.h>

#include <charconv>

#include "base/filestream.h"
#include "base/logging.h"
#include "base/stringutils.h"

namespace mpbp {
namespace {

constexpr char kCpuInfoPath[] = "/proc/cpuinfo";
constexpr char kMaxFrequencyPath[] = "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq";
constexpr char kModelPath[] = "/sys/class/dmi/id/product_name";

constexpr size_t kMaxCpuInfo = 8'000'000;  // thousands of processors
constexpr size_t kMaxSmallFile = 4096;

// The whole number that the text begins with; 0 without one.
int ParseNumber(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Takes the first line off `text`.
std::string_view TakeLine(std::string_view* text) {
  const size_t end = text->find('\n');
  const std::string_view line = text->substr(0, end);
  text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
  return line;
}

int64_t MemoryBytes() {
  const int64_t pages = sysconf(_SC_PHYS_PAGES);
  const int64_t page_size = sysconf(_SC_PAGESIZE);
  if (pages < 0 || page_size < 0) {
    LOG_ERR(LS_ERROR) << "sysconf(_SC_PHYS_PAGES) failed.";
    return 0;
  }
  return pages * page_size;
}

std::string MachineModel() {
  const std::string text = ReadFileText(kModelPath, kMaxSmallFile);
  std::string_view rest = text;
  const std::string_view model = TrimWhitespace(TakeLine(&rest));
  return model.empty() ? "Not available" : std::string(model);
}

}  // namespace

CpuInfo ParseCpuInfo(std::string_view cpuinfo) {
  CpuInfo info;
  while (!cpuinfo.empty()) {
    const std::string_view line = TakeLine(&cpuinfo);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view name = TrimWhitespace(line.substr(0, colon));
    const int value = ParseNumber(TrimWhitespace(line.substr(colon + 1)));
    if (name == "processor") ++info.processors;
    if (info.processors > 1) continue;
    if (name == "cpu family") info.family = value;
    if (name == "model") info.model = value;
    if (name == "stepping") info.stepping = value;
    if (name == "cpu MHz") info.mhz = value;
  }
  return info;
}

SystemInfo SystemInfo::Gather() {
  SystemInfo info;
  info.cpu = ParseCpuInfo(ReadFileText(kCpuInfoPath, kMaxCpuInfo));
  info.max_cpu_mhz = ParseNumber(ReadFileText(kMaxFrequencyPath, kMaxSmallFile)) / 1000;
  if (info.max_cpu_mhz == 0) info.max_cpu_mhz = info.cpu.mhz;
  info.memory_bytes = MemoryBytes();
  info.model = MachineModel();
  return info;
}

}  // namespace mpbp
