#include "fuzz/campaigns/chaos/images.hpp"

#include <algorithm>
#include <array>

#include "tests/support/wire_image.hpp"

namespace zal::campaign {

namespace {

using namespace std::string_literals;

const std::string kFormat = "A(iBBBBi)\0"s;

std::string number(std::uint32_t value, bool isBigEndian = false) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift & 0xff));
  if (isBigEndian) std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

std::string image(char flags, const std::string& rest, bool isBigEndian = false) {
  const auto length = static_cast<std::uint32_t>(test::kImageHeaderSize + rest.size());
  return "tpl"s + flags + number(length, isBigEndian) + rest;
}

}  // namespace

std::string rawImage(const RawRecord& record, bool isBigEndian) {
  std::string bytes = kFormat + number(1, isBigEndian) + number(record.code, isBigEndian);
  for (const std::string* slot : {&record.service, &record.name, &record.optionalParam, &record.payload})
    bytes += number(static_cast<std::uint32_t>(slot->size()), isBigEndian) + *slot;
  return image(isBigEndian ? 1 : 0, bytes + number(record.requestId, isBigEndian), isBigEndian);
}

std::string undecodableImage(Random& random) {
  const std::string record = number(5) + number(0) + number(0) + number(0) + number(0) + number(0);
  const std::array<std::string, 8> all{
      image(0, "A(s)\0"s + number(0)),                                           // another format
      image(0, "i\0"s + number(7)),                                              //
      image(0, random.bytes(static_cast<std::size_t>(random.between(1, 300)))),  // no format
      image(0, kFormat + number(0x7fffffff) + record),                           // more records than there are
      image(0, kFormat + number(1) + record + "excess"),                         //
      image(0, kFormat + number(1) + number(5) + number(0xfffffff0) + record),   // a text beyond the end
      image(0, kFormat + number(1) + record.substr(0, record.size() - 2)),       // a record cut short
      image(static_cast<char>(0x80), kFormat + number(1) + record),              // flags that nobody knows
  };
  return random.oneOf(all);
}

std::string garbage(Random& random) {
  std::string bytes = random.bytes(static_cast<std::size_t>(random.between(16, 2000)));
  if (random.oneIn(4)) return "tpl\0"s + number(static_cast<std::uint32_t>(random.below(9))) + bytes;  // too short
  bytes[0] = 'T';
  return bytes;
}

std::string oversizedFront(Random& random) {
  static constexpr std::array<std::uint32_t, 4> kLengths{5'000'000, 0x7fffffff, 0x80000000, 0xffffffff};
  return "tpl\0"s + number(random.oneOf(kLengths)) + kFormat +
         random.bytes(static_cast<std::size_t>(random.between(0, 100'000)));
}

}  // namespace zal::campaign
