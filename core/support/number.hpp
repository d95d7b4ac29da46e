// Numbers that come from outside: every text and every double gives a value, without undefined behaviour and whatever
// the locale of the program is.
#pragma once

#include <locale.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace zal {

/// The whole part of a double; values beyond the type give its limits, NaN gives 0.
inline std::int64_t toInt64(double value) noexcept {
  constexpr double kBeyond = 9223372036854775808.0;  // 2^63
  if (std::isnan(value)) return 0;
  if (value >= kBeyond) return std::numeric_limits<std::int64_t>::max();
  if (value < -kBeyond) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

/// strtol in base 10 with a long of 32 bits, as on the smallest machine that the library runs on.
inline std::int32_t readInt32(const char* text) noexcept {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<long long>(std::strtoll(text, nullptr, 10), Limits::min(), Limits::max()));
}

/// strtod in the C locale: the decimal point is "." also in a program that has set another one.
inline double readDouble(const char* text) noexcept {
  static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
  return classic == nullptr ? std::strtod(text, nullptr) : strtod_l(text, nullptr, classic);
}

}  // namespace zal
