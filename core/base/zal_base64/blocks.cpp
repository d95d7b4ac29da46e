// Sixteen characters at a time on x86 processors. A character is told by the two halves of its byte: all letters and
// digits whose high halves are equal stand in the order of their values, so that one number per row turns them into
// these; of the row 2, which has two characters, "/" is looked up as row 1, which has none.
#include "base/zal_base64/blocks.hpp"

#ifdef __x86_64__

#include <tmmintrin.h>

#include <cstring>

#include "base/zal_base64/alphabet.hpp"

namespace zal::base64 {
namespace {

constexpr std::uint32_t kGroups = 4;  ///< of a block
constexpr int kRows = 8;              ///< of 16 characters; no character of the alphabet has the highest bit

struct alignas(16) Lookup {
  std::uint8_t at[16];
};

/// A bit for each row.
constexpr Lookup kRowBits = [] {
  Lookup bits{};
  for (int row = 0; row < kRows; ++row) bits.at[row] = static_cast<std::uint8_t>(1 << row);
  return bits;
}();

/// For each low half the bits of the rows in which a character of the alphabet has it.
constexpr Lookup kRowsOf = [] {
  Lookup rows{};
  for (int value = 0; value < 64; ++value) {
    std::uint8_t& bits = rows.at[kAlphabet[value] & 15];
    bits = static_cast<std::uint8_t>(bits | 1 << (kAlphabet[value] >> 4));
  }
  return rows;
}();

/// What turns a character into its value.
constexpr Lookup kDistances = [] {
  Lookup distances{};
  for (int value = 0; value < 64; ++value) {
    const int row = kAlphabet[value] == '/' ? 1 : kAlphabet[value] >> 4;
    distances.at[row] = static_cast<std::uint8_t>(value - kAlphabet[value]);
  }
  return distances;
}();

__attribute__((target("ssse3"))) inline __m128i lookUp(const Lookup& table, __m128i indices) noexcept {
  return _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(table.at)), indices);
}

/// Four values of 6 bits in each 32 bits become the first 12 bytes.
__attribute__((target("ssse3"))) inline __m128i pack(__m128i values) noexcept {
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));  // first << 6 | second
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));     // first pair << 12 | second pair
  return _mm_shuffle_epi8(groups, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
}

__attribute__((target("ssse3"))) std::uint32_t decodeWithVectors(const char* input, std::uint32_t groups,
                                                                 std::uint8_t* output) noexcept {
  const __m128i zero = _mm_setzero_si128();
  const __m128i half = _mm_set1_epi8(0x0F);
  std::uint32_t done = 0;
  for (; groups - done >= kGroups; done += kGroups, input += 16, output += 12) {
    const __m128i characters = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input));
    const __m128i rows = _mm_and_si128(_mm_srli_epi32(characters, 4), half);
    const __m128i common = _mm_and_si128(lookUp(kRowBits, rows), lookUp(kRowsOf, _mm_and_si128(characters, half)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(common, zero)) != 0) break;

    const __m128i isSlash = _mm_cmpeq_epi8(characters, _mm_set1_epi8('/'));  // -1 where it is
    const __m128i distances = lookUp(kDistances, _mm_add_epi8(rows, isSlash));
    const __m128i bytes = pack(_mm_add_epi8(characters, distances));
    std::memcpy(output, &bytes, 12);
  }
  return done;
}

}  // namespace

std::uint32_t decodeBlocks(const char* input, std::uint32_t groups, std::uint8_t* output) noexcept {
  return __builtin_cpu_supports("ssse3") != 0 ? decodeWithVectors(input, groups, output) : 0;
}

}  // namespace zal::base64

#else

std::uint32_t zal::base64::decodeBlocks(const char*, std::uint32_t, std::uint8_t*) noexcept {
  return 0;
}

#endif
