// Base64 over the caller's buffers: nothing is allocated, nothing is logged, no terminator is written. Any thread.
#include <zal/zal_runtime.h>

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

#include "base/zal_base64/alphabet.hpp"
#include "base/zal_base64/blocks.hpp"

namespace {

using zal::base64::kAlphabet;
using zal::base64::kInvalid;
using zal::base64::valueOf;

constexpr char kPad = '=';
constexpr std::uint32_t kLongestResult = std::numeric_limits<std::int32_t>::max();

/// The two characters of each 12 bits.
constexpr auto kPairs = [] {
  std::array<std::array<char, 2>, 1 << 12> pairs{};
  for (std::size_t bits = 0; bits < pairs.size(); ++bits) pairs[bits] = {kAlphabet[bits >> 6], kAlphabet[bits & 63]};
  return pairs;
}();

constexpr std::uint32_t kNoGroup = 1U << 24;  ///< a bit that no group of three bytes has

/// What each character contributes to a group from each of the four places, kNoGroup for those outside the alphabet.
constexpr auto kPlaced = [] {
  std::array<std::array<std::uint32_t, 256>, 4> placed{};
  for (std::uint32_t place = 0; place < 4; ++place)
    for (std::uint32_t character = 0; character < 256; ++character) {
      const std::uint32_t value = zal::base64::kValues[character];
      placed[place][character] = value == kInvalid ? kNoGroup : value << (18 - 6 * place);
    }
  return placed;
}();

/// Three bytes, the first one highest, as four characters.
void putGroup(std::uint32_t bytes, char* output) noexcept {
  std::memcpy(output, kPairs[bytes >> 12].data(), 2);
  std::memcpy(output + 2, kPairs[bytes & 0xFFF].data(), 2);
}

std::uint32_t takeGroup(const char* input) noexcept {
  std::uint32_t group = 0;
  for (std::size_t place = 0; place < 4; ++place) group |= kPlaced[place][static_cast<std::uint8_t>(input[place])];
  return group;
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
  std::uint32_t group = 0;
  for (; groups - group >= 3; group += 2, bytes += 6, output += 8) {  // two at a time while eight bytes can be read
    std::uint64_t next = 0;
    std::memcpy(&next, bytes, sizeof next);
    next = be64toh(next);
    putGroup(static_cast<std::uint32_t>(next >> 40), output);
    putGroup(static_cast<std::uint32_t>(next >> 16 & 0xFFFFFF), output + 4);
  }
  for (; group < groups; ++group, bytes += 3, output += 4)
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
  std::uint32_t group = zal::base64::decodeBlocks(input, groups, bytes);
  input += 4 * std::size_t{group};
  bytes += 3 * std::size_t{group};
  for (; group < groups; ++group, input += 4, bytes += 3) {
    const std::uint32_t value = takeGroup(input);
    if (value >= kNoGroup) {
      const std::int32_t last = takeLast(input, bytes);
      return last < 0 ? -1 : static_cast<std::int32_t>(3 * group) + last;
    }
    bytes[0] = static_cast<std::uint8_t>(value >> 16);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
    bytes[2] = static_cast<std::uint8_t>(value);
  }
  return static_cast<std::int32_t>(3 * groups);
}
