// Processors: their number, time counters, load and frequency, from /proc/stat, sysconf(3) and cpufreq. Every function
// is for any thread. The share that each process has is in zal_proc_pid.cpp.
#include "common/zal_cpu_stat.hpp"

#include <zal/zal_runtime.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "support/descriptor.hpp"
#include "support/log.hpp"
#include "support/scanner.hpp"
#include "support/text_file.hpp"

namespace {

constexpr const char* kStatPath = "/proc/stat";
constexpr const char* kFrequencyPath = "/sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq";

using StatFile = zal::TextFile<1024>;

/// The counters in the order in which a line of /proc/stat has them.
constexpr std::uint64_t ZAL_CpuStat::*kLineOrder[] = {
    &ZAL_CpuStat::user,   &ZAL_CpuStat::nice, &ZAL_CpuStat::system,  &ZAL_CpuStat::idle,
    &ZAL_CpuStat::iowait, &ZAL_CpuStat::irq,  &ZAL_CpuStat::softirq, &ZAL_CpuStat::steal,
};

/// The difference of two counters, of which a kernel may also take some back.
double growth(std::uint64_t before, std::uint64_t after) noexcept {
  return static_cast<double>(static_cast<std::int64_t>(after - before));
}

/// Hundredths of a percent as percent, without what is below a hundredth, and 0 for negative ones.
double percentOf(double hundredths) noexcept {
  constexpr double kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::clamp(hundredths, 0.0, kMost)) / 100.0;
}

}  // namespace

namespace zal::cpu {

ZAL_CpuStat parseCounters(std::string_view text) noexcept {
  ZAL_CpuStat counters{};
  Scanner scanner{text};
  for (const auto counter : kLineOrder) {
    const auto value = scanner.number<std::uint64_t>();
    if (!value) break;
    counters.*counter = *value;
  }
  return counters;
}

std::uint64_t totalOf(const ZAL_CpuStat& counters) noexcept {
  std::uint64_t total = 0;
  for (const auto counter : kLineOrder) total += counters.*counter;
  return total;
}

Sample parseProcessors(std::string_view text, int count) noexcept {
  Sample sample{};
  std::size_t from = 0;
  for (int i = 0; i < std::min(count, ZAL_CPU_MAX); ++i) {
    std::array<char, 8> label{};
    std::snprintf(label.data(), label.size(), "cpu%u ", static_cast<unsigned int>(i));
    const std::size_t found = text.find(label.data(), from);
    from = 0;
    if (found == std::string_view::npos) continue;
    from = found + std::strlen(label.data());
    ZAL_CpuStat& processor = sample[static_cast<std::size_t>(i)];
    processor = parseCounters(text.substr(from));
    processor.valid = 1;
  }
  return sample;
}

ZAL_CpuLoad loadBetween(const ZAL_CpuStat& before, const ZAL_CpuStat& after) noexcept {
  ZAL_CpuLoad load{};
  load.valid = after.valid;
  const double total = growth(totalOf(before), totalOf(after));
  if (total <= 0) return load;
  const auto share = [&](std::uint64_t ZAL_CpuStat::*counter) {
    return percentOf(growth(before.*counter, after.*counter) / total * 10000);
  };
  load.usage = percentOf((100 - 100 * growth(before.idle, after.idle) / total) * 100);
  load.user = share(&ZAL_CpuStat::user);
  load.system = share(&ZAL_CpuStat::system);
  load.iowait = share(&ZAL_CpuStat::iowait);
  load.irq = share(&ZAL_CpuStat::irq);
  load.softirq = share(&ZAL_CpuStat::softirq);
  return load;
}

std::uint32_t parseMegahertz(std::string_view text) noexcept {
  return Scanner{text}.number<std::uint32_t>().value_or(0) / 1000;
}

ZAL_CpuStat readSystem(const char* path) noexcept {
  constexpr const char* kSpeaker = "ZAL_GetTotalCpuTime";
  constexpr std::string_view kLabel = "cpu";
  const StatFile file{path};
  const std::string_view line = file.text().substr(0, file.text().find('\n'));
  if (!file.isOpen()) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kSpeaker, "Could not open stat file\n");
  } else if (file.text().empty()) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kSpeaker, "Could not read stat file\n");
  } else if (line.starts_with(kLabel)) {
    return parseCounters(line.substr(kLabel.size()));
  }
  return {};
}

Sample readProcessors(const char* path, int count) noexcept {
  const StatFile file{path};
  if (!file.isOpen()) std::fputs("could not open /proc/stat\n", stderr);
  return parseProcessors(file.text(), count);
}

std::uint32_t readMegahertz(const char* path) noexcept {
  const Descriptor file{open(path, O_RDONLY | O_CLOEXEC)};
  struct stat64 status {};
  if (!file.isOpen() || fstat64(file.get(), &status) != 0 || status.st_size < 1) return 0;
  std::array<char, 31> text{};
  return parseMegahertz({text.data(), file.readUpTo(text.data(), text.size())});
}

}  // namespace zal::cpu

int ZAL_GetNumOfCpu(void) noexcept {
  return static_cast<int>(std::clamp<long>(sysconf(_SC_NPROCESSORS_ONLN), 0, ZAL_CPU_MAX));
}

void ZAL_GetTotalCpuTime(uint64_t* total, uint64_t* idle) noexcept {
  const ZAL_CpuStat counters = zal::cpu::readSystem(kStatPath);
  if (total != nullptr) *total = zal::cpu::totalOf(counters);
  if (idle != nullptr) *idle = counters.idle;
}

int ZAL_GetCpuStat(ZAL_CpuStat** stats) noexcept {
  // Room for all, so that a processor that joins before the caller counts them is not beyond the array.
  *stats = static_cast<ZAL_CpuStat*>(std::calloc(ZAL_CPU_MAX, sizeof(ZAL_CpuStat)));
  if (*stats == nullptr) return -1;
  std::ranges::copy(zal::cpu::readProcessors(kStatPath, ZAL_GetNumOfCpu()), *stats);
  return 0;
}

void ZAL_GetCpuSummary(ZAL_CpuSummary* summary) noexcept {
  const zal::cpu::Sample before = zal::cpu::readProcessors(kStatPath, ZAL_GetNumOfCpu());
  ZAL_Sleep(zal::cpu::kSampleMs);
  const zal::cpu::Sample after = zal::cpu::readProcessors(kStatPath, ZAL_GetNumOfCpu());
  *summary = {};
  summary->numCpus = static_cast<uint8_t>(ZAL_GetNumOfCpu());
  std::transform(before.begin(), before.begin() + summary->numCpus, after.begin(), summary->cpu, zal::cpu::loadBetween);
}

uint32_t ZAL_GetCpuFrequency(int /*index*/) noexcept {
  return zal::cpu::readMegahertz(kFrequencyPath);
}

int ZAL_GetCpuFreqList(uint32_t* list) noexcept {
  const int count = static_cast<int>(std::min<long>(sysconf(_SC_NPROCESSORS_CONF), ZAL_CPU_MAX));
  for (int i = 0; i < count; ++i) list[i] = 1000 * ZAL_GetCpuFrequency(i);
  return count;
}
