// What the rest of the library may know of the transport beyond its public header. Nothing here is exported.
#pragma once

#include <zal/zal_ipc.h>

#include <cstdint>

#include "support/memory.hpp"

namespace zal {

/// Queues a write as ZAL_IPC_ClientWrite does, but leaves it to the caller to wake the loop when true is returned. Any
/// thread.
[[nodiscard]] bool queueClientWrite(ZAL_IpcHandle_& ipc, CPtr<void> buffer, std::uint32_t length) noexcept;

}  // namespace zal
