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

bool hasGrown(const Vitals& early, const Vitals& late, long residentSlackKib) {
  constexpr long kHeapSlackKib = 256;
  return late.descriptors > early.descriptors || late.threads > early.threads ||
         (kMemoryIsTelling && late.heapKib > early.heapKib + kHeapSlackKib) ||
         (kResidentIsTelling && late.residentKib > early.residentKib + residentSlackKib);
}

long peakKib() {
  return statusKib("VmHWM");
}

void forgetPeak() {
  std::ofstream{"/proc/self/clear_refs"} << "5";
}

}  // namespace zal::campaign
