// The decimal digits of doubles, the same as printf's but faster. Any thread.
#pragma once

#include <cstddef>

namespace zal::object {

inline constexpr std::size_t kLongestDigits = 32;
inline constexpr std::size_t kLongestDecimals = 320;  ///< a sign, 309 digits, ".", six more, and some to spare

/// Writes a finite value as "%.*g", with up to 17 significant digits, into kLongestDigits characters.
///
/// @return the end of the text, behind which at least one character is free
char* writeDigits(char* text, double value, int digits) noexcept;

/// Writes a finite value as "%.6f" into kLongestDecimals characters.
///
/// @return the end of the text, behind which at least one character is free
char* writeSixDecimals(char* text, double value) noexcept;

}  // namespace zal::object
