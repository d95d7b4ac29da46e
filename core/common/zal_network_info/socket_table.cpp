// Walks /proc and the descriptor directories below it; see the header.
#include "common/zal_network_info/socket_table.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string_view>

#include "support/directory.hpp"
#include "support/log.hpp"
#include "support/scanner.hpp"
#include "support/text.hpp"
#include "support/text_file.hpp"

namespace zal::network {

namespace {

constexpr const char* kGatherProcesses = "ZAL_GatherProcPids";
constexpr const char* kGatherSockets = "ZAL_GatherProcPidsSymlinks";

/// The text after "/proc/<pid>/".
std::array<char, 32> pathInProc(std::int32_t pid, const char* file) noexcept {
  std::array<char, 32> path{};
  std::snprintf(path.data(), path.size(), "/proc/%d/%s", pid, file);
  return path;
}

/// Makes `entry` that of a process without sockets; false when the process is gone.
[[nodiscard]] bool fillEntry(ZAL_ProcSocketEntry& entry, std::int32_t pid) noexcept {
  const TextFile<512> comm{pathInProc(pid, "comm").data()};
  std::string_view name = comm.text();
  if (name.empty()) return false;
  if (name.ends_with('\n')) name.remove_suffix(1);
  entry = {};
  entry.pid = pid;
  copyCut(entry.name, name, sizeof entry.name);
  return true;
}

/// A descriptor's link in /proc/<pid>/fd that leads to a socket.
struct SocketLink {
  std::array<char, 1024> target;  // "socket:[inode]"
  std::uint32_t inode;
  std::uint32_t changeTime;  // of the link itself, seconds
};

/// Nothing for a descriptor that is no socket or is gone.
std::optional<SocketLink> readSocketLink(int directory, const char* name) noexcept {
  constexpr std::string_view kSocket = "socket:[";
  SocketLink link{};
  const ssize_t length = readlinkat(directory, name, link.target.data(), link.target.size() - 1);
  if (length < 0) return std::nullopt;
  const std::string_view target{link.target.data(), static_cast<std::size_t>(length)};
  if (!target.starts_with(kSocket)) return std::nullopt;
  const auto inode = Scanner{target.substr(kSocket.size())}.number<std::uint32_t>();
  struct stat64 status {};
  if (!inode || fstatat64(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  link.inode = *inode;
  link.changeTime = static_cast<std::uint32_t>(status.st_ctim.tv_sec);
  return link;
}

void gatherSocketsOf(ZAL_ProcSocketEntry& process) noexcept {
  std::ranges::fill(process.sockets, 0U);
  std::ranges::fill(process.socketTimes, 0U);
  Directory descriptors{pathInProc(process.pid, "fd").data()};
  if (!descriptors.isOpen()) return;
  std::size_t filled = 0;
  while (const dirent64* const entry = descriptors.next()) {
    const auto descriptor = Scanner{entry->d_name}.number<int>();
    if (!descriptor || *descriptor <= STDERR_FILENO) continue;
    const auto link = readSocketLink(descriptors.descriptor(), entry->d_name);
    if (!link) continue;
    if (filled == std::size(process.sockets)) {
      ZAL_LOG_AS(ZAL_LOG_INFO, kGatherSockets, "%s - socket array for PID %d max'ed out at %d; ignored symlink %s\n",
                 kGatherSockets, process.pid, ZAL_PROC_SOCKETS, link->target.data());
      continue;
    }
    process.sockets[filled] = link->inode;
    process.socketTimes[filled] = link->changeTime;
    ++filled;
  }
}

}  // namespace

std::span<const ZAL_ProcSocketEntry> usedPart(const ZAL_ProcSocketEntry* table) noexcept {
  const std::span all{table, ZAL_PROC_SOCKET_ENTRIES};
  const auto end = std::ranges::find(all, 0, &ZAL_ProcSocketEntry::pid);
  return all.first(static_cast<std::size_t>(end - all.begin()));
}

void gatherProcesses(SocketTable table) noexcept {
  constexpr const char* kProc = "/proc";
  Directory proc{kProc};
  if (!proc.isOpen()) {
    std::fprintf(stderr, "%s - could not open dir (%s)\n", kGatherProcesses, kProc);
    return;
  }
  std::size_t filled = 0;
  while (filled < table.size()) {
    const dirent64* const entry = proc.next();
    if (entry == nullptr) break;
    const auto pid = Scanner{entry->d_name}.number<std::int32_t>();
    if (pid.value_or(0) > 0 && fillEntry(table[filled], *pid)) ++filled;
  }
  if (filled < table.size()) table[filled].pid = 0;
}

void gatherSockets(SocketTable table) noexcept {
  for (ZAL_ProcSocketEntry& process : table) {
    if (process.pid == 0) break;
    gatherSocketsOf(process);
  }
}

}  // namespace zal::network
