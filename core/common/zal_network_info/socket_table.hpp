// The processes of the system and the sockets that they hold, gathered from proc(5) into a caller's table. A process or
// a descriptor may be gone at any moment; it is skipped then. Any thread, each with a table of its own.
#pragma once

#include <zal/zal_system.h>

#include <span>

namespace zal::network {

using SocketTable = std::span<ZAL_ProcSocketEntry, ZAL_PROC_SOCKET_ENTRIES>;

/// The entries before the first one without pid.
[[nodiscard]] std::span<const ZAL_ProcSocketEntry> usedPart(const ZAL_ProcSocketEntry* table) noexcept;

void gatherProcesses(SocketTable table) noexcept;
void gatherSockets(SocketTable table) noexcept;

}  // namespace zal::network
