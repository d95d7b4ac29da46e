// The process table: single processes, snapshots, CPU shares and searches, from the process directories of proc(5).
// Every function is for any thread. A process may end between any two calls: what cannot be read is left out. The time
// that the processors spend is in zal_cpu_stat.cpp, the sockets of processes are in zal_network_info.cpp.
#include "common/zal_proc_pid.hpp"

#include <zal/zal_runtime.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/zal_cpu_stat.hpp"
#include "support/directory.hpp"
#include "support/log.hpp"
#include "support/scanner.hpp"
#include "support/text.hpp"
#include "support/text_file.hpp"

namespace {

constexpr const char* kRoot = "/proc";
constexpr std::size_t kListSize = 512;

/// Numbers of a stat line as proc(5) counts its fields, from the first that follows the state.
enum StatField { kPpid = 4, kUtime = 14, kStime = 15, kThreads = 20, kVsize = 23, kRss = 24 };

/// "<root>/<process>/<file>". A path that does not fit is empty, which names no file: cut short, it would name another.
template <std::size_t Size>
std::array<char, Size> pathOf(const char* root, const char* process, const char* file) noexcept {
  std::array<char, Size> path{};
  const int length = std::snprintf(path.data(), path.size(), "%s/%s/%s", root, process, file);
  if (length < 0 || static_cast<std::size_t>(length) >= path.size()) path.front() = '\0';
  return path;
}

std::string_view firstArgument(std::string_view commandLine) noexcept {
  return commandLine.substr(0, commandLine.find('\0'));
}

bool beginsWithDigit(const char* name, char lowest) noexcept {
  return *name >= lowest && *name <= '9';
}

bool isDirectory(const zal::Directory& parent, const dirent64& entry) noexcept {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat64 status {};
  return fstatat64(parent.descriptor(), entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

/// The name of the next directory of a process, null at the end.
const char* nextProcess(const zal::Directory& processes) noexcept {
  while (const dirent64* const entry = processes.next())
    if (beginsWithDigit(entry->d_name, '0') && isDirectory(processes, *entry)) return entry->d_name;
  return nullptr;
}

zal::CPtr<ZAL_ProcessInfo> allocateRecords(std::uint32_t count) noexcept {
  return zal::CPtr<ZAL_ProcessInfo>{
      static_cast<ZAL_ProcessInfo*>(std::calloc(std::max(count, 1U), sizeof(ZAL_ProcessInfo)))};
}

/// All processes, sorted by pid; without records when they cannot be read, which is logged as ZAL_GetProcessSummary.
zal::proc::Table takeSnapshot() noexcept {
  zal::proc::Table table = zal::proc::readTable(kRoot);
  if (!table.records) ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_GetProcessSummary", "ZAL_GetProcesses() failed\n");
  std::ranges::sort(table.span(), [](const auto& left, const auto& right) { return proc_comp_tid(&left, &right) < 0; });
  return table;
}

/// The processor time that a process took. Less than before means another process under the same pid: no time.
std::uint32_t ticksBetween(const ZAL_ProcessInfo& before, const ZAL_ProcessInfo& after) noexcept {
  const std::uint32_t ticks = (after.utime + after.stime) - (before.utime + before.stime);
  return static_cast<std::int32_t>(ticks) < 0 ? 0 : ticks;
}

bool isNamed(const char* root, const char* process, std::string_view name, bool exact) noexcept {
  const zal::TextFile<512> commandLine{pathOf<128>(root, process, "cmdline").data()};
  if (!commandLine.text().empty()) {
    const std::string_view argument = firstArgument(commandLine.text());
    return exact ? argument == name : argument.find(name) != std::string_view::npos;
  }
  const zal::TextFile<128> comm{pathOf<128>(root, process, "comm").data()};  // a thread of the kernel
  return !comm.text().empty() && comm.text().find(name) != std::string_view::npos;
}

}  // namespace

namespace zal::proc {

std::optional<ZAL_ProcessInfo> parseStat(std::string_view text) noexcept {
  const auto pid = Scanner{text}.number<std::int32_t>();
  // The name between the parentheses may hold any byte; behind the last one no other stands.
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (!pid || open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
  if (text.size() - close < 3) return std::nullopt;
  Scanner numbers{text.substr(close + 3)};
  std::array<std::int64_t, kRss + 1> field{};
  for (std::size_t i = kPpid; i < field.size(); ++i) {
    const auto number = numbers.number<std::int64_t>();
    if (!number) return std::nullopt;
    field[i] = *number;
  }

  ZAL_ProcessInfo process{};
  process.pid = *pid;
  copyCut(process.comm, text.substr(open + 1, close - open - 1), sizeof process.comm);
  process.state = text[close + 2];
  process.utime = static_cast<std::uint32_t>(field[kUtime]);
  process.stime = static_cast<std::uint32_t>(field[kStime]);
  process.threads = static_cast<std::int32_t>(field[kThreads]);
  process.vsize = static_cast<std::uint32_t>((static_cast<std::uint64_t>(field[kVsize]) >> 10) * 1000);
  const auto pages = static_cast<std::uint64_t>(std::max<std::int64_t>(field[kRss], 0));
  process.rss = static_cast<std::uint32_t>((pages * static_cast<std::uint64_t>(getpagesize())) >> 10);
  return process;
}

std::optional<ZAL_ProcessInfo> readProcess(const char* root, const char* pid) noexcept {
  const TextFile<4096> stat{pathOf<256>(root, pid, "stat").data()};
  auto process = parseStat(stat.text());
  if (!process) return std::nullopt;
  const TextFile<sizeof process->cmdline> commandLine{pathOf<256>(root, pid, "cmdline").data()};
  if (!commandLine.isOpen()) return std::nullopt;
  copyCut(process->cmdline, firstArgument(commandLine.text()), sizeof process->cmdline);
  return process;
}

Table readTable(const char* root) noexcept {
  Table table{};
  const Directory processes{root};
  if (!processes.isOpen()) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_GetProcesses", "Could not open /proc\n");
    return table;
  }
  table.records = allocateRecords(ZAL_PROCESSES_MAX);
  if (!table.records) return table;
  // Processes that vanish are counted as well, up to the limit; those behind it may still take their place.
  for (std::uint32_t filled = 0; filled < ZAL_PROCESSES_MAX;) {
    const char* const pid = nextProcess(processes);
    if (pid == nullptr) break;
    if (table.count < ZAL_PROCESSES_MAX) ++table.count;
    if (const auto process = readProcess(root, pid)) table.records.get()[filled++] = *process;
  }
  return table;
}

void joinSnapshots(std::span<const ZAL_ProcessInfo> before, std::span<const ZAL_ProcessInfo> after,
                   std::uint64_t elapsed, int processors, ZAL_ProcessInfo* joined) noexcept {
  // Zeroed records stand for processes that were gone before they could be read.
  const auto isRead = [](const ZAL_ProcessInfo& process) { return process.pid > 0; };
  auto old = std::ranges::find_if(before, isRead);
  auto now = std::ranges::find_if(after, isRead);
  while (old != before.end() && now != after.end()) {
    const int order = proc_comp_tid(&*old, &*now);
    if (order == 0) {
      *joined = *now;
      joined->utime = joined->stime = 0;
      if (elapsed != 0)
        joined->cpuUsage = static_cast<float>(ticksBetween(*old, *now)) / static_cast<float>(elapsed) * 100 *
                           static_cast<float>(processors);
      ++joined;
    }
    if (order <= 0) ++old;
    if (order >= 0) ++now;
  }
}

std::int32_t findProcess(const char* root, std::string_view name, bool exact) noexcept {
  constexpr std::size_t kShortestPid = 3;
  const Directory processes{root};
  while (const dirent64* const entry = processes.next()) {
    const char* const pid = entry->d_name;
    if (std::strlen(pid) >= kShortestPid && beginsWithDigit(pid, '1') && isNamed(root, pid, name, exact))
      return Scanner{pid}.number<std::int32_t>().value_or(0);
  }
  return 0;
}

CPtr<char> listCommandLines(const char* root, std::string_view pattern) noexcept {
  const Directory processes{root};
  CPtr<char> list;
  std::size_t length = 0;
  while (const dirent64* const entry = processes.next()) {
    if (!beginsWithDigit(entry->d_name, '1')) continue;
    const TextFile<512> file{pathOf<128>(root, entry->d_name, "cmdline").data()};
    if (!file.isOpen()) continue;
    std::array<char, 512> spaced{};
    std::ranges::replace_copy(file.text(), spaced.begin(), '\0', ' ');
    const std::string_view line{spaced.data(), file.text().size()};
    if (line.find(pattern) == std::string_view::npos) continue;
    if (!list) list = allocateBytes(kListSize);
    if (!list) return nullptr;
    for (const std::string_view piece : {std::string_view{length == 0 ? "" : "\n"}, std::string_view{"root    "},
                                         std::string_view{entry->d_name}, std::string_view{"   "}, line}) {
      copyCut(list.get() + length, piece, kListSize - length);
      length += std::min(piece.size(), kListSize - 1 - length);
    }
  }
  return list;
}

}  // namespace zal::proc

int ZAL_GetProcPid(ZAL_ProcessInfo* process, const char* pid) noexcept {
  if (process == nullptr || pid == nullptr) return -1;
  const auto found = zal::proc::readProcess(kRoot, pid);
  if (!found) return -1;
  *process = *found;
  return 0;
}

int ZAL_GetProcPidByInt(ZAL_ProcessInfo* process, int32_t pid) noexcept {
  std::array<char, 12> text{};
  std::snprintf(text.data(), text.size(), "%d", pid);
  return ZAL_GetProcPid(process, text.data());
}

int ZAL_GetProcesses(ZAL_ProcessInfo** table, uint32_t* count) noexcept {
  zal::proc::Table found = zal::proc::readTable(kRoot);
  *table = found.records.release();
  *count = found.count;
  return *table == nullptr ? -1 : 0;
}

void ZAL_GetProcessSummary(ZAL_ProcessInfo** table, uint32_t* count) noexcept {
  *table = nullptr;
  *count = 0;
  const int processors = ZAL_GetNumOfCpu();
  uint64_t start = 0;
  uint64_t end = 0;

  ZAL_GetTotalCpuTime(&start, nullptr);
  const zal::proc::Table before = takeSnapshot();
  if (!before.records) return;
  ZAL_Sleep(zal::cpu::kSampleMs);
  ZAL_GetTotalCpuTime(&end, nullptr);
  const zal::proc::Table after = takeSnapshot();
  if (!after.records) return;

  const uint32_t smaller = std::min(before.count, after.count);
  auto joined = allocateRecords(smaller);
  if (!joined) {
    ZAL_LOG(ZAL_LOG_ERROR, "calloc() failed\n");
    return;
  }
  zal::proc::joinSnapshots(before.span(), after.span(), end - start, processors, joined.get());
  *table = joined.release();
  *count = smaller;
}

int proc_comp_tid(const void* left, const void* right) noexcept {
  const int32_t leftPid = static_cast<const ZAL_ProcessInfo*>(left)->pid;
  const int32_t rightPid = static_cast<const ZAL_ProcessInfo*>(right)->pid;
  return (leftPid > rightPid) - (leftPid < rightPid);
}

void ZAL_ConvertStateToString(char state, char* buffer, size_t size) noexcept {
  struct StateName {
    char letter;
    const char* text;
  };
  constexpr StateName kNames[] = {
      {'D', "uninterruptableSleep"},
      {'N', "lowPriority"},
      {'R', "runQueue"},
      {'S', "sleeping"},
      {'T', "stopped"},
      {'Z', "zombie"},
  };
  const auto* const found = std::ranges::find(kNames, state, &StateName::letter);
  zal::copyCut(buffer, found == std::end(kNames) ? "unknown" : found->text, size);
}

uint32_t ZAL_CountOpenFileDescriptors(uint32_t pid) noexcept {
  if (pid == 0) return 0;
  std::array<char, 24> path{};
  std::snprintf(path.data(), path.size(), "/proc/%u/fd", pid);
  const zal::Directory descriptors{path.data()};
  uint32_t count = 0;
  while (const dirent64* const entry = descriptors.next())
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) ++count;
  return count;
}

int32_t ZAL_GetProcessPidOf(const char* name, int exact) noexcept {
  return name == nullptr ? 0 : zal::proc::findProcess(kRoot, name, exact != 0);
}

char* ZAL_GetProcessCmdline(const char* pattern) noexcept {
  return pattern == nullptr ? nullptr : zal::proc::listCommandLines(kRoot, pattern).release();
}
