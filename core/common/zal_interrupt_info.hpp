// What the texts of proc(5) say about interrupts. Any thread; no locale changes what is read.
#pragma once

#include <zal/zal_system.h>

#include <optional>
#include <string_view>

namespace zal::interrupts {

/// Processors of the system, as sysconf(3) counts them.
struct Processors {
  long online;
  long configured;
};

/// Takes over the text of /proc/interrupts: every line after the header into its entry, the columns into the
/// processors' sums, and all of it into the total. Logs, and reports lines that find no entry, as
/// ZAL_GetInterruptCount.
void readTable(std::string_view text, Processors processors, ZAL_InterruptInfo& info) noexcept;

/// Takes over one line of /proc/stat. True when it was the last one that matters.
bool readStatLine(std::string_view line, ZAL_InterruptInfo& info) noexcept;

/// The interrupt that a line of /proc/tty/driver/serial gives, when it is about `port`.
[[nodiscard]] std::optional<std::string_view> serialInterrupt(std::string_view line, std::string_view port) noexcept;

}  // namespace zal::interrupts
