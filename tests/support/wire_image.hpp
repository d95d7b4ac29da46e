// The image that travels between client and agent, encoded and decoded byte by byte and by hand: the tests compare the
// library with this, so nothing of the library is used here.
//
//   0  "tpl"      3  flags, 0      4  total length      8  "A(iBBBBi)" and NUL      18  count of records, then each
//   record: code, the four texts with their lengths in front, request id. Numbers are 32 bits, little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zal::test {

struct WireRecord {
  std::int32_t code = 0;
  std::string service{};
  std::string name{};
  std::string optionalParam{};
  std::string payload{};
  std::int32_t requestId = 0;

  bool operator==(const WireRecord&) const = default;
};

/// The records of one image, in the order in which they stand in it (the sender's last added record first).
using WireImage = std::vector<WireRecord>;

inline constexpr std::size_t kImageHeaderSize = 8;  // up to and with the total length

std::string encodeImage(const WireImage& image);

/// The total length that an image's first kImageHeaderSize bytes announce; 0 when they begin no image.
std::size_t announcedLength(std::string_view bytes);

/// Decodes one whole image; nothing when a single byte is not as it must be.
std::optional<WireImage> decodeImage(std::string_view bytes);

}  // namespace zal::test
