// The alphabet of base64 and what is read from it. The codec is zal_base64.cpp, its decoder of long texts blocks.cpp.
#pragma once

#include <array>
#include <cstdint>

namespace zal::base64 {

inline constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr std::uint8_t kInvalid = 0x80;  ///< a bit that no value of 0 to 63 has

/// The value of each character, kInvalid for those outside the alphabet.
inline constexpr auto kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kInvalid);
  for (std::uint8_t value = 0; value < 64; ++value) values[static_cast<std::uint8_t>(kAlphabet[value])] = value;
  return values;
}();

constexpr std::uint8_t valueOf(char character) noexcept {
  return kValues[static_cast<std::uint8_t>(character)];
}

}  // namespace zal::base64
