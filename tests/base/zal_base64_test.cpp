#include <zal/zal_runtime.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

// The result and what the output buffer holds then. Both buffers have their exact size, so that the address sanitizer
// sees a byte too many.
using Outcome = std::pair<int, std::string>;
using Case = std::tuple<std::string, std::uint32_t, Outcome>;

template <class Codec>
Outcome run(Codec codec, const std::string& input, std::uint32_t capacity) {
  std::string output(capacity, '.');
  const auto result = codec(input.data(), static_cast<std::uint32_t>(input.size()), output.data(), capacity);
  return {result, output};
}

TEST(Base64, EncodesAsRfc4648SaysWhatFitsAndReadsEveryByteBack) {
  const Case cases[] = {
      {"", 0, {0, ""}},      {"f", 4, {4, "Zg=="}},   {"fo", 4, {4, "Zm8="}},        {"foobar", 9, {8, "Zm9vYmFy."}},
      {"f", 3, {-1, "..."}}, {"foo", 3, {-1, "..."}}, {"foobar", 7, {-1, "Zm9v..."}}};
  for (const auto& [input, capacity, expected] : cases) EXPECT_EQ(run(zbase64_encode, input, capacity), expected);

  // A result beyond 31 bits is refused before a byte is read.
  for (const std::uint32_t length : {UINT32_MAX, 1610612734U})
    EXPECT_EQ(zbase64_encode(nullptr, length, nullptr, UINT32_MAX), -1);

  std::string bytes;
  for (int value = 0; value < 258; ++value) bytes += static_cast<char>(value * 37);
  EXPECT_EQ(run(zbase64_decode, run(zbase64_encode, bytes, 344).second, 258), (Outcome{258, bytes}));
}

TEST(Base64, DecodesUpToWhatIsWrongOrDoesNotFit) {
  const Case cases[] = {
      {"Zm9vYg==", 6, {4, "foob.."}},  {"Zm9vYmE=", 6, {5, "fooba."}}, {"Zm9", 3, {0, "..."}},  // less than a group
      {"Zm9v", 2, {0, ".."}},          // less room than for a group
      {"Zm9vY", 6, {3, "foo..."}},     // a fifth character
      {"Zm9vYmFy", 5, {3, "foo.."}},   // room for one group and a bit
      {"Zg==Zm9v", 6, {1, "f....."}},  // more after padding
      {"Zg=A", 3, {1, "f.."}},         // no second "="
      {"Zm9v=mFy", 6, {-1, "foo..."}}, {"Zm9\n", 3, {-1, "..."}},      {"Zm9\xff", 3, {-1, "..."}}};
  for (const auto& [input, capacity, expected] : cases)
    EXPECT_EQ(run(zbase64_decode, input, capacity), expected) << input << " " << capacity;
}

TEST(Base64, TellsEveryByteInEveryPlaceOfALongText) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t place = 0; place < alphabet.size(); ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text = alphabet;
      text[place] = static_cast<char>(byte);
      const bool isPadding = byte == '=' && place % 4 >= 2;
      const int expected = alphabet.find(text[place]) != std::string::npos ? 48
                           : isPadding ? static_cast<int>(place / 4 * 3 + place % 4 - 1)
                                       : -1;
      ASSERT_EQ(run(zbase64_decode, text, 48).first, expected) << place << ' ' << byte;
    }
  }
}

}  // namespace
