// Numbers of everyday size are written by exact arithmetic on 64 bits, digit by digit; the standard library's way,
// which is made for all sizes, takes several times as long.
#include "base/zal_object/digits.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace zal::object {
namespace {

/// Between these "%g" shows no exponent, also after rounding, and a double has no bit beyond the 64th of its fraction.
constexpr double kSmallest = 1e-3;
constexpr double kLargest = 1e14;

bool isEveryday(double magnitude) noexcept {
  return magnitude >= kSmallest && magnitude < kLargest;
}

/// What stands behind the point: a number below 1, in units of 2^-64.
class Fraction {
 public:
  explicit Fraction(double value) noexcept : bits_{static_cast<std::uint64_t>(value * 0x1p64)} {}

  [[nodiscard]] bool isZero() const noexcept { return bits_ == 0; }

  /// The first decimal digit, which is taken away.
  char takeDigit() noexcept {
    const std::uint64_t low = (bits_ & 0xFFFFFFFF) * 10;
    const std::uint64_t high = (bits_ >> 32) * 10 + (low >> 32);
    bits_ = high << 32 | (low & 0xFFFFFFFF);
    return static_cast<char>('0' + (high >> 32));
  }

  /// Whether the digit before it becomes the next one: a half goes to the even digit.
  [[nodiscard]] bool roundsUp(char digit) const noexcept {
    constexpr std::uint64_t kHalf = std::uint64_t{1} << 63;
    return bits_ > kHalf || (bits_ == kHalf && digit % 2 != 0);
  }

 private:
  std::uint64_t bits_;
};

/// Adds one to the last digit of a text that begins with a zero to spare.
void addOne(char* end) noexcept {
  for (char* at = end - 1;; --at) {
    if (*at == '.') continue;
    if (*at != '9') {
      ++*at;
      return;
    }
    *at = '0';
  }
}

/// A number without its sign. `decimalsFor` tells how many decimals, at least one, follow so many digits.
template <class DecimalsFor>
char* writeEveryday(char* text, double magnitude, DecimalsFor decimalsFor) noexcept {
  char spare[kLongestDigits] = {'0'};
  char* const first = spare + 1;
  const auto whole = static_cast<std::uint64_t>(magnitude);
  char* end = std::to_chars(first, spare + sizeof spare, whole).ptr;
  int decimals = decimalsFor(static_cast<int>(end - first));
  *end++ = '.';
  Fraction fraction{magnitude - static_cast<double>(whole)};
  for (; decimals > 0 && !fraction.isZero(); --decimals) *end++ = fraction.takeDigit();
  if (fraction.roundsUp(end[-1])) addOne(end);
  end = std::fill_n(end, decimals, '0');
  return std::copy(spare[0] == '0' ? first : spare, end, text);
}

}  // namespace

char* writeDigits(char* text, double value, int digits) noexcept {
  const double magnitude = std::fabs(value);
  if (!isEveryday(magnitude))
    return std::to_chars(text, text + kLongestDigits - 1, value, std::chars_format::general, digits).ptr;
  if (value < 0) *text++ = '-';
  char* end = writeEveryday(text, magnitude, [=](int wholeDigits) noexcept {
    return magnitude >= 1 ? digits - wholeDigits : digits + (magnitude < 0.1 ? 1 : 0) + (magnitude < 0.01 ? 1 : 0);
  });
  while (end[-1] == '0') --end;
  return end[-1] == '.' ? end - 1 : end;
}

char* writeSixDecimals(char* text, double value) noexcept {
  const double magnitude = std::fabs(value);
  if (!isEveryday(magnitude))
    return std::to_chars(text, text + kLongestDecimals - 1, value, std::chars_format::fixed, 6).ptr;
  if (value < 0) *text++ = '-';
  return writeEveryday(text, magnitude, [](int) noexcept { return 6; });
}

}  // namespace zal::object
