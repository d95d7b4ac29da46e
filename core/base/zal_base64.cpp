// Base64 over the caller's buffers: nothing is allocated, nothing is logged, no terminator is written. Any thread.
#include <zal/zal_runtime.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';
constexpr std::uint8_t kInvalid = 0x80;  ///< a bit that no value of 0 to 63 has
constexpr std::uint32_t kLongestResult = std::numeric_limits<std::int32_t>::max();

/// The value of each character, kInvalid for those outside the alphabet.
constexpr auto kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kInvalid);
  for (std::uint8_t value = 0; value < 64; ++value) values[static_cast<std::uint8_t>(kAlphabet[value])] = value;
  return values;
}();

constexpr std::uint8_t valueOf(char character) noexcept {
  return kValues[static_cast<std::uint8_t>(character)];
}

/// Three bytes, the first one highest, as four characters.
void putGroup(std::uint32_t bytes, char* output) noexcept {
  output[0] = kAlphabet[bytes >> 18];
  output[1] = kAlphabet[bytes >> 12 & 63];
  output[2] = kAlphabet[bytes >> 6 & 63];
  output[3] = kAlphabet[bytes & 63];
}

/// The last group, of one or two bytes.
void putPadded(const std::uint8_t* input, std::uint32_t count, char* output) noexcept {
  const bool hasTwo = count == 2;
  putGroup(std::uint32_t{input[0]} << 16 | (hasTwo ? std::uint32_t{input[1]} << 8 : 0), output);
  if (!hasTwo) output[2] = kPad;
  output[3] = kPad;
}

/// A group that holds padding or a character outside the alphabet: the bytes it gives, -1 when it is malformed.
std::int32_t takeLast(const char* input, std::uint8_t* output) noexcept {
  const std::uint8_t first = valueOf(input[0]);
  const std::uint8_t second = valueOf(input[1]);
  const std::uint8_t third = input[2] == kPad ? 0 : valueOf(input[2]);
  const std::uint8_t fourth = input[3] == kPad ? 0 : valueOf(input[3]);
  if (((first | second | third | fourth) & kInvalid) != 0) return -1;
  output[0] = static_cast<std::uint8_t>(first << 2 | second >> 4);
  if (input[2] == kPad) return 1;
  output[1] = static_cast<std::uint8_t>(second << 4 | third >> 2);
  return 2;
}

}  // namespace

int32_t zbase64_encode(const void* input, uint32_t inputLength, char* output, uint32_t capacity) noexcept {
  if (inputLength > kLongestResult / 4 * 3) return -1;
  const auto* bytes = static_cast<const std::uint8_t*>(input);
  const std::uint32_t groups = std::min(inputLength / 3, capacity / 4);
  for (std::uint32_t group = 0; group < groups; ++group, bytes += 3, output += 4)
    putGroup(std::uint32_t{bytes[0]} << 16 | std::uint32_t{bytes[1]} << 8 | bytes[2], output);
  const std::uint32_t written = 4 * groups;
  const std::uint32_t left = inputLength - 3 * groups;
  if (left == 0) return static_cast<std::int32_t>(written);
  if (left >= 3 || capacity - written < 4) return -1;
  putPadded(bytes, left, output);
  return static_cast<std::int32_t>(written + 4);
}

int32_t zbase64_decode(const char* input, uint32_t inputLength, void* output, uint32_t capacity) noexcept {
  auto* bytes = static_cast<std::uint8_t*>(output);
  const std::uint32_t groups = std::min(inputLength / 4, std::min(capacity, kLongestResult) / 3);
  for (std::uint32_t group = 0; group < groups; ++group, input += 4, bytes += 3) {
    const std::uint32_t a = valueOf(input[0]);
    const std::uint32_t b = valueOf(input[1]);
    const std::uint32_t c = valueOf(input[2]);
    const std::uint32_t d = valueOf(input[3]);
    if (((a | b | c | d) & kInvalid) != 0) {
      const std::int32_t last = takeLast(input, bytes);
      return last < 0 ? -1 : static_cast<std::int32_t>(3 * group) + last;
    }
    const std::uint32_t value = a << 18 | b << 12 | c << 6 | d;
    bytes[0] = static_cast<std::uint8_t>(value >> 16);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
    bytes[2] = static_cast<std::uint8_t>(value);
  }
  return static_cast<std::int32_t>(3 * groups);
}
