// Images as no honest agent makes them, byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/campaigns/support/random.hpp"

namespace zal::campaign {

/// A record whose texts are sent as they are, without a terminator of their own.
struct RawRecord {
  std::uint32_t code = 0;
  std::string service{};
  std::string name{};
  std::string optionalParam{};
  std::string payload{};
  std::uint32_t requestId = 0;
};

/// An image of one record in either byte order.
std::string rawImage(const RawRecord& record, bool isBigEndian);

/// A whole image, in the right length, that cannot be decoded.
std::string undecodableImage(Random& random);

/// At least one header's worth of bytes that begin no image.
std::string garbage(Random& random);

/// The front of an image that is said to be much longer than what follows.
std::string oversizedFront(Random& random);

}  // namespace zal::campaign
