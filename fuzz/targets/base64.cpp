// Any characters as base64, in and out of buffers of any size. A plain decoder must give the same, and what is encoded
// must come back.
#include <zal/zal_runtime.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/fuzz.hpp"

namespace {

using zal::fuzz::Buffer;

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// What decoding gives: the bytes written, and the result.
struct Decoded {
  std::string bytes;
  std::int32_t result = 0;
};

Decoded failed(Decoded decoded) {
  decoded.result = -1;
  return decoded;
}

/// Group by group, as it is written down.
Decoded decodePlainly(std::string_view text, std::size_t capacity) {
  Decoded decoded;
  for (; text.size() >= 4 && capacity - decoded.bytes.size() >= 3; text.remove_prefix(4)) {
    std::uint32_t group = 0;
    const std::size_t characters = text[3] != '=' ? 4 : text[2] != '=' ? 3 : 2;
    for (std::size_t i = 0; i < 4; ++i) {
      const bool isPad = i >= 2 && text[i] == '=';
      const std::size_t value = isPad ? 0 : kAlphabet.find(text[i]);
      if (value == std::string_view::npos) return failed(decoded);
      group = group << 6 | static_cast<std::uint32_t>(value);
    }
    const std::size_t bytes = text[2] == '=' ? 1 : characters - 1;
    for (std::size_t i = 0; i < bytes; ++i) decoded.bytes += static_cast<char>(group >> (16 - 8 * i));
    if (bytes < 3) break;
  }
  decoded.result = static_cast<std::int32_t>(decoded.bytes.size());
  return decoded;
}

void decode(std::string_view text, std::size_t capacity) {
  const Buffer output{capacity};
  const std::int32_t result = zbase64_decode(text.data(), static_cast<std::uint32_t>(text.size()), output.data(),
                                             static_cast<std::uint32_t>(capacity));
  const Decoded expected = decodePlainly(text, capacity);
  FUZZ_CHECK(result == expected.result);
  FUZZ_CHECK((std::string_view{output.data(), expected.bytes.size()} == expected.bytes));
}

void encode(std::string_view bytes, std::size_t capacity) {
  const Buffer text{capacity};
  const std::int32_t length = zbase64_encode(bytes.data(), static_cast<std::uint32_t>(bytes.size()), text.data(),
                                             static_cast<std::uint32_t>(capacity));
  const std::size_t needed = (bytes.size() + 2) / 3 * 4;
  FUZZ_CHECK(length == (needed <= capacity ? static_cast<std::int32_t>(needed) : -1));
  if (length < 0) return;
  const Buffer back{bytes.size() + 2};
  const std::int32_t size = zbase64_decode(text.data(), static_cast<std::uint32_t>(length), back.data(),
                                           static_cast<std::uint32_t>(back.size()));
  FUZZ_CHECK((std::string_view{back.data(), static_cast<std::size_t>(size)} == bytes));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::Input input{data, size};
  const std::size_t cut = input.byte();  // how much the output is too small, up to all of it
  const std::size_t room = input.left() / 4 * 3;
  decode(input.rest(), room - std::min(cut, room));
  const std::size_t characters = (input.left() + 2) / 3 * 4;
  encode(input.rest(), characters - std::min(cut, characters));
  return 0;
}
