// Any datagram as a STUN answer: an address that is found must stand in the message, as it is or masked.
#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "common/zal_public_address/stun.hpp"
#include "support/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::uint32_t kCookie = 0x2112A442;
  const auto address = zal::stun::addressIn({data, size});
  if (!address) return 0;
  const std::string_view message{reinterpret_cast<const char*>(data), size};
  const auto stands = [&](std::uint32_t value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    return message.find({bytes, sizeof bytes}) != std::string_view::npos;
  };
  FUZZ_CHECK(stands(address->s_addr) || stands(address->s_addr ^ htonl(kCookie)));
  return 0;
}
