// Uptime and memory figures, from proc(5). Every function is for any thread. The exported names come in pairs; what
// they share is here once.
#include "base/zal_osl/memory_uptime.hpp"

#include <zal/zal_runtime.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "support/memory.hpp"
#include "support/number.hpp"
#include "support/scanner.hpp"
#include "support/text_file.hpp"

namespace {

constexpr std::size_t kUptimeBytes = 256;
constexpr std::size_t kMemoryBytes = 4096;

/// A figure of /proc/meminfo: the label that is looked for, and how far behind its beginning the number may begin.
struct Figure {
  std::string_view label;
  std::size_t skipped;
  std::uint64_t ZAL_MemoryInfo::*field;
};

/// Labels fill a column of 16 characters, and blanks stand before every number.
constexpr Figure kFigures[] = {{"MemTotal:", 16, &ZAL_MemoryInfo::total},
                               {"\nMemFree:", 16, &ZAL_MemoryInfo::free},
                               {"\nMemAvailable:", 14, &ZAL_MemoryInfo::available}};

int uptimeSeconds(float* seconds) noexcept {
  if (seconds == nullptr) return 0;
  const zal::TextFile<kUptimeBytes + 1> file{"/proc/uptime"};
  if (!file.isOpen()) {
    std::fputs("could not open /proc/uptime\n", stderr);
    return -1;
  }
  if (const auto found = zal::osl::uptimeIn(file.text())) *seconds = *found;
  return 0;
}

int uptimeMilliseconds(std::uint64_t* milliseconds) noexcept {
  if (milliseconds == nullptr) return 0;
  float seconds = 0;
  static_cast<void>(uptimeSeconds(&seconds));  // on failure they stay 0
  *milliseconds = zal::osl::toMilliseconds(seconds);
  return 0;
}

}  // namespace

std::optional<float> zal::osl::uptimeIn(std::string_view text) noexcept {
  return Scanner{text}.number<float>();
}

std::uint64_t zal::osl::toMilliseconds(float seconds) noexcept {
  const float product = seconds * 1000.0F;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(toInt64(static_cast<double>(product)), 0));
}

void zal::osl::readMemory(std::string_view text, ZAL_MemoryInfo& info) noexcept {
  for (const Figure& figure : kFigures) {
    const std::size_t label = text.find(figure.label);
    if (label == std::string_view::npos || text.size() - label < figure.skipped) continue;
    if (const auto value = Scanner{text.substr(label + figure.skipped)}.number<std::uint64_t>())
      info.*figure.field = *value;
  }
}

int ZAL_GetUptimeFloat(float* seconds) noexcept {
  return uptimeSeconds(seconds);
}

int ZAL_GetUpTimerFloat(float* seconds) noexcept {
  return uptimeSeconds(seconds);
}

int ZAL_GetUptime(uint64_t* milliseconds) noexcept {
  return uptimeMilliseconds(milliseconds);
}

int ZAL_GetUpTime(uint64_t* milliseconds) noexcept {
  return uptimeMilliseconds(milliseconds);
}

int ZAL_Osl_GetMemoryInfo(ZAL_MemoryInfo* info) noexcept {
  if (info == nullptr) return 0;
  const zal::CPtr<char> text{ZAL_GetFileContentProc("/proc/meminfo", kMemoryBytes)};
  if (text != nullptr) zal::osl::readMemory(text.get(), *info);
  return 0;
}
