// Any texts as those of /proc and /sys: processors, processes, interrupts, memory and uptime.
#include <zal/zal_system.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/zal_osl/memory_uptime.hpp"
#include "common/zal_cpu_stat.hpp"
#include "common/zal_interrupt_info.hpp"
#include "common/zal_proc_pid.hpp"
#include "support/fuzz.hpp"

namespace {

using zal::fuzz::Input;
using zal::fuzz::Text;

/// A load is a share of the time, or none where a counter was taken back.
void readProcessors(std::string_view before, std::string_view after, int count) {
  const zal::cpu::Sample first = zal::cpu::parseProcessors(before, count);
  const zal::cpu::Sample second = zal::cpu::parseProcessors(after, count);
  for (std::size_t i = 0; i < first.size(); ++i) {
    if (static_cast<int>(i) >= count) FUZZ_CHECK(first[i].valid == 0 && zal::cpu::totalOf(first[i]) == 0);
    const ZAL_CpuLoad load = zal::cpu::loadBetween(first[i], second[i]);
    for (const double share : {load.usage, load.user, load.system, load.iowait, load.irq, load.softirq})
      FUZZ_CHECK(std::isfinite(share) && share >= 0);
  }
  FUZZ_CHECK(zal::cpu::parseMegahertz(after) <= UINT32_MAX / 1000);
}

/// The processes of a text with one line for each, sorted as snapshots are.
std::vector<ZAL_ProcessInfo> readProcesses(std::string_view text) {
  std::vector<ZAL_ProcessInfo> processes;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (const auto process = zal::proc::parseStat(line)) processes.push_back(*process);
  }
  std::ranges::sort(processes, [](const auto& one, const auto& other) { return proc_comp_tid(&one, &other) < 0; });
  return processes;
}

void joinProcesses(std::string_view before, std::string_view after) {
  const std::vector<ZAL_ProcessInfo> first = readProcesses(before);
  const std::vector<ZAL_ProcessInfo> second = readProcesses(after);
  std::vector<ZAL_ProcessInfo> joined(std::min(first.size(), second.size()));
  zal::proc::joinSnapshots(first, second, 1, 4, joined.data());
  for (const ZAL_ProcessInfo& process : joined) {
    FUZZ_CHECK(std::isfinite(process.cpuUsage) && process.cpuUsage >= 0);
    char state[24];
    ZAL_ConvertStateToString(process.state, state, sizeof state);
  }
}

void readInterrupts(std::string_view table, std::string_view port, zal::interrupts::Processors processors) {
  ZAL_InterruptInfo info{};
  zal::interrupts::readTable(table, processors, info);
  std::uint32_t total = 0;
  for (const ZAL_InterruptCpu& cpu : info.cpu) {
    FUZZ_CHECK(cpu.present != 0 || cpu.count == 0);
    total += cpu.present;
  }
  FUZZ_CHECK(total <= static_cast<std::uint32_t>(std::max(processors.online, 0L)));
  static_cast<void>(zal::interrupts::readStatLine(table, info));
  const auto found = zal::interrupts::serialInterrupt(table, port);
  if (found) FUZZ_CHECK(table.find(*found) != std::string_view::npos);
}

void readMemoryAndUptime(std::string_view text) {
  ZAL_MemoryInfo info{};
  zal::osl::readMemory(text, info);
  if (const auto seconds = zal::osl::uptimeIn(text)) static_cast<void>(zal::osl::toMilliseconds(*seconds));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const std::uint8_t choice = input.byte();
  const Text before = input.text();
  const std::string_view after = input.rest();
  readProcessors(before.view(), after, choice % 32);
  joinProcesses(before.view(), after);
  readInterrupts(after, before.view(), {.online = choice % 16, .configured = choice / 16});
  readMemoryAndUptime(after);
  return 0;
}
