// The process table as texts and directories tell it. The readers take the directory that stands for /proc, for trees
// of other devices. Any thread; nothing is kept. The exported functions, with their fixed paths, are in
// zal_proc_pid.cpp.
#pragma once

#include <zal/zal_system.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "support/memory.hpp"

namespace zal::proc {

/// A table that malloc made, all zero behind the processes that were read.
struct Table {
  CPtr<ZAL_ProcessInfo> records;
  std::uint32_t count;

  [[nodiscard]] std::span<ZAL_ProcessInfo> span() const noexcept { return {records.get(), count}; }
};

/// The record of a text like /proc/PID/stat, without command line; nothing for a text that is no such line.
[[nodiscard]] std::optional<ZAL_ProcessInfo> parseStat(std::string_view text) noexcept;
/// The record of the process `pid` in `root`.
[[nodiscard]] std::optional<ZAL_ProcessInfo> readProcess(const char* root, const char* pid) noexcept;
/// All processes in `root`; no records when it cannot be opened, which is logged as ZAL_GetProcesses, or memory runs
/// out.
[[nodiscard]] Table readTable(const char* root) noexcept;
/// Stores the processes that both snapshots hold, which are sorted by pid, with their share of `elapsed` ticks of so
/// many processors. There is room in `joined` for the smaller snapshot.
void joinSnapshots(std::span<const ZAL_ProcessInfo> before, std::span<const ZAL_ProcessInfo> after,
                   std::uint64_t elapsed, int processors, ZAL_ProcessInfo* joined) noexcept;
/// ZAL_GetProcessPidOf in `root`.
[[nodiscard]] std::int32_t findProcess(const char* root, std::string_view name, bool exact) noexcept;
/// ZAL_GetProcessCmdline in `root`.
[[nodiscard]] CPtr<char> listCommandLines(const char* root, std::string_view pattern) noexcept;

}  // namespace zal::proc
