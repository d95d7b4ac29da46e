// The processors as texts tell them: what proc(5) and cpufreq print, and the loads that follow from two samples. The
// readers take a path, for files of other devices. Any thread; nothing is kept. The exported functions, with their
// fixed paths, are in zal_cpu_stat.cpp.
#pragma once

#include <zal/zal_system.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace zal::cpu {

/// The time between the two samples that a load is made of.
inline constexpr unsigned int kSampleMs = 500;

/// One record a processor, in their order; a processor that was not found is all zero.
using Sample = std::array<ZAL_CpuStat, ZAL_CPU_MAX>;

/// The counters at the beginning of `text`, in the order of /proc/stat; those that are missing are zero.
[[nodiscard]] ZAL_CpuStat parseCounters(std::string_view text) noexcept;
/// The sum of all counters.
[[nodiscard]] std::uint64_t totalOf(const ZAL_CpuStat& counters) noexcept;
/// The processors 0 to `count` - 1 of a text like /proc/stat.
[[nodiscard]] Sample parseProcessors(std::string_view text, int count) noexcept;
/// What a processor did from one sample to the next.
[[nodiscard]] ZAL_CpuLoad loadBetween(const ZAL_CpuStat& before, const ZAL_CpuStat& after) noexcept;
/// Megahertz of a text in kHz, 0 when it is not one.
[[nodiscard]] std::uint32_t parseMegahertz(std::string_view text) noexcept;

/// The first line of a file like /proc/stat; a failure is logged as ZAL_GetTotalCpuTime.
[[nodiscard]] ZAL_CpuStat readSystem(const char* path) noexcept;
/// The processors of a file like /proc/stat; one that cannot be opened is reported on standard error.
[[nodiscard]] Sample readProcessors(const char* path, int count) noexcept;
/// Megahertz from an attribute of cpufreq, 0 when it cannot be read.
[[nodiscard]] std::uint32_t readMegahertz(const char* path) noexcept;

}  // namespace zal::cpu
