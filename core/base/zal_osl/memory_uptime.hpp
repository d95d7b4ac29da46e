// What the texts of /proc/uptime and /proc/meminfo say; both are described in proc(5). Any thread.
#pragma once

#include <zal/zal_system.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace zal::osl {

/// The seconds since boot, to the nearest single; empty when no number begins the text. No locale changes it.
[[nodiscard]] std::optional<float> uptimeIn(std::string_view text) noexcept;

/// Whole milliseconds of a product in single precision; what is below 0, or no number, gives 0.
[[nodiscard]] std::uint64_t toMilliseconds(float seconds) noexcept;

/// Stores the figures that the text has; the others stay as they are.
void readMemory(std::string_view text, ZAL_MemoryInfo& info) noexcept;

}  // namespace zal::osl
