// Base64 of 4 KiB, against a loop over a plain table.
#include <zal/zal_runtime.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "suites.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

constexpr std::uint32_t kBytes = 4096;
constexpr std::uint32_t kCharacters = (kBytes + 2) / 3 * 4;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0x80;
constexpr auto kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kInvalid);
  for (std::uint8_t value = 0; value < 64; ++value) values[static_cast<std::uint8_t>(kAlphabet[value])] = value;
  return values;
}();

std::uint8_t valueOf(char character) {
  return kValues[static_cast<std::uint8_t>(character)];
}

/// Both directions, as they are written by hand.
std::int32_t plainEncode(const void* input, std::uint32_t length, char* output, std::uint32_t /*capacity*/) {
  const auto* in = static_cast<const std::uint8_t*>(input);
  char* out = output;
  for (; length >= 3; length -= 3, in += 3) {
    *out++ = kAlphabet[in[0] >> 2];
    *out++ = kAlphabet[(in[0] & 3) << 4 | in[1] >> 4];
    *out++ = kAlphabet[(in[1] & 15) << 2 | in[2] >> 6];
    *out++ = kAlphabet[in[2] & 63];
  }
  if (length > 0) {
    const int second = length == 2 ? in[1] : 0;
    *out++ = kAlphabet[in[0] >> 2];
    *out++ = kAlphabet[(in[0] & 3) << 4 | second >> 4];
    *out++ = length == 2 ? kAlphabet[(second & 15) << 2] : '=';
    *out++ = '=';
  }
  return static_cast<std::int32_t>(out - output);
}

std::int32_t plainDecode(const char* input, std::uint32_t length, void* output, std::uint32_t /*capacity*/) {
  const int padding = input[length - 1] != '=' ? 0 : input[length - 2] != '=' ? 1 : 2;
  auto* const first = static_cast<std::uint8_t*>(output);
  std::uint8_t* out = first;
  for (; length >= 4; length -= 4, input += 4) {
    const bool isPadded = length == 4 && padding > 0;
    const std::uint8_t a = valueOf(input[0]);
    const std::uint8_t b = valueOf(input[1]);
    const std::uint8_t c = isPadded && padding == 2 ? 0 : valueOf(input[2]);
    const std::uint8_t d = isPadded ? 0 : valueOf(input[3]);
    if (((a | b | c | d) & kInvalid) != 0) return -1;
    *out++ = static_cast<std::uint8_t>(a << 2 | b >> 4);
    *out++ = static_cast<std::uint8_t>(b << 4 | c >> 2);
    *out++ = static_cast<std::uint8_t>(c << 6 | d);
  }
  return static_cast<std::int32_t>(out - first) - padding;
}

std::string sample() {
  std::string bytes(kBytes, '\0');
  for (std::uint32_t i = 0; i < kBytes; ++i) bytes[i] = static_cast<char>(i * 2654435761U >> 24);
  return bytes;
}

/// Turns `input` into `expected` again and again: MB/s of the bytes that the text stands for.
template <class Codec>
double speed(Codec codec, const std::string& input, const std::string& expected, int count) {
  std::string output(kCharacters, '\0');  // room for whole groups in both directions
  std::int32_t written = 0;
  const double each = nanosecondsOf(count, [&] {
    written = codec(input.data(), static_cast<std::uint32_t>(input.size()), output.data(),
                    static_cast<std::uint32_t>(output.size()));
  });
  output.resize(static_cast<std::size_t>(std::max(written, 0)));
  if (output != expected) throw std::runtime_error{"base64 gave something else"};
  return kBytes / each * 1e3;
}

}  // namespace

void measureBase64(const Settings& settings, Report& report) {
  const int count = scaled(8000, settings.effort);
  const std::string bytes = sample();
  std::string text(kCharacters, '\0');
  plainEncode(bytes.data(), kBytes, text.data(), kCharacters);

  report.add({"base64, 4 KiB encoded", "MB/s", settings.rounds},
             {{"plain table", [&] { return speed(plainEncode, bytes, text, count); }},
              {"zal", [&] { return speed(zbase64_encode, bytes, text, count); }}});
  report.add({"base64, 4 KiB decoded", "MB/s", settings.rounds},
             {{"plain table", [&] { return speed(plainDecode, text, bytes, count); }},
              {"zal", [&] { return speed(zbase64_decode, text, bytes, count); }}});
}

}  // namespace bench
