#include "fuzz/campaigns/support/vitals.hpp"

#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace zal::campaign {
namespace {

long entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator{directory}, {});
}

/// A line of /proc/self/status, in KiB.
long statusKib(const std::string& name) {
  std::ifstream status{"/proc/self/status"};
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  return 0;
}

}  // namespace

std::string Vitals::text() const {
  std::ostringstream out;
  out << descriptors << " descriptors, " << threads << " threads";
  if (kMemoryIsTelling) out << ", " << heapKib << " KiB of heap, " << residentKib << " KiB resident";
  return out.str();
}

Vitals vitals() {
  malloc_trim(0);  // what has been freed is no growth
  const auto heap = mallinfo2();
  return {.descriptors = entriesOf("/proc/self/fd"),
          .threads = entriesOf("/proc/self/task"),
          .residentKib = statusKib("VmRSS"),
          .heapKib = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024)};
}

long peakKib() {
  return statusKib("VmHWM");
}

void forgetPeak() {
  std::ofstream{"/proc/self/clear_refs"} << "5";
}

}  // namespace zal::campaign
