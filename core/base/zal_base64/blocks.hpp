// Decoding many characters at once, where the processor can. Any thread.
#pragma once

#include <cstdint>

namespace zal::base64 {

/// Decodes groups of four characters into three bytes each, at most `groups` of them, and stops before a character that
/// is not of the alphabet, before the last few, and at once on a processor without vectors.
///
/// @return how many groups it decoded; nothing is written behind their bytes
std::uint32_t decodeBlocks(const char* input, std::uint32_t groups, std::uint8_t* output) noexcept;

}  // namespace zal::base64
