// The local date and time of now, without the buffer that std::localtime shares between threads. Any thread.
#pragma once

#include <ctime>
#include <optional>

namespace zal {

/// Empty when the calendar cannot express the time.
inline std::optional<std::tm> localTime() noexcept {
  const std::time_t now = std::time(nullptr);
  std::tm calendar{};
  tzset();  // localtime_r alone would keep the time zone of the first call
  if (localtime_r(&now, &calendar) == nullptr) return std::nullopt;
  return calendar;
}

}  // namespace zal
