// What the rest of the library may know of the transport beyond its public header. Nothing here is exported.
#pragma once

#include <zal/zal_ipc.h>

#include <cstdint>

#include "support/memory.hpp"

namespace zal::ipc {

/// A handle's connections to servers are numbered from 1, around through this one.
inline constexpr std::uint32_t kAnyConnection = 0;

/// The number of the connection that is up, or was last. Any thread.
[[nodiscard]] std::uint32_t connectionNumber(ZAL_IpcHandle_& ipc) noexcept;

/// ZAL_IPC_ClientWrite for one connection: on another one, or without any, the buffer is dropped. Any thread.
/// @return true when it is queued
bool writeOn(std::uint32_t connection, ZAL_IpcHandle_& ipc, CPtr<void> buffer, std::uint32_t length) noexcept;

}  // namespace zal::ipc
