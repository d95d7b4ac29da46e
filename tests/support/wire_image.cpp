#include "tests/support/wire_image.hpp"

namespace zal::test {
namespace {

constexpr std::string_view kMagic{"tpl\0", 4};
constexpr std::string_view kFormat{"A(iBBBBi)\0", 10};

void appendNumber(std::string& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>(value >> shift & 0xff));
}

void appendBlob(std::string& out, std::string_view bytes) {
  appendNumber(out, static_cast<std::uint32_t>(bytes.size()));
  out.append(bytes);
}

/// The takers remove what they return from the front; beyond the end there is nothing, and nothing is 0.
std::string_view takeBytes(std::string_view& from, std::size_t size) {
  const std::string_view taken = from.substr(0, size);
  from.remove_prefix(taken.size());
  return taken;
}

std::uint32_t takeNumber(std::string_view& from) {
  const std::string_view bytes = takeBytes(from, 4);
  std::uint32_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

std::string takeBlob(std::string_view& from) {
  const std::uint32_t size = takeNumber(from);
  return std::string{takeBytes(from, size)};
}

/// A blob up to its first NUL.
std::string takeText(std::string_view& from) {
  return takeBlob(from).c_str();
}

WireRecord takeRecord(std::string_view& from) {
  WireRecord record;
  record.code = static_cast<std::int32_t>(takeNumber(from));
  record.service = takeText(from);
  record.name = takeText(from);
  record.optionalParam = takeText(from);
  record.payload = takeBlob(from);
  record.requestId = static_cast<std::int32_t>(takeNumber(from));
  return record;
}

}  // namespace

std::string encodeImage(const WireImage& image) {
  std::string data{kFormat};
  appendNumber(data, static_cast<std::uint32_t>(image.size()));
  for (const WireRecord& record : image) {
    appendNumber(data, static_cast<std::uint32_t>(record.code));
    for (const std::string* text : {&record.service, &record.name, &record.optionalParam})
      appendBlob(data, {text->c_str(), text->size() + 1});
    appendBlob(data, record.payload);
    appendNumber(data, static_cast<std::uint32_t>(record.requestId));
  }

  std::string bytes{kMagic};
  appendNumber(bytes, static_cast<std::uint32_t>(kImageHeaderSize + data.size()));
  return bytes + data;
}

std::size_t announcedLength(std::string_view bytes) {
  return takeBytes(bytes, kMagic.size()) == kMagic ? takeNumber(bytes) : 0;
}

std::optional<WireImage> decodeImage(std::string_view bytes) {
  std::string_view rest = bytes;
  takeBytes(rest, kImageHeaderSize + kFormat.size());
  WireImage image;
  for (std::uint32_t count = takeNumber(rest); count > 0 && !rest.empty(); --count) image.push_back(takeRecord(rest));
  // What was read loosely is what was sent when it has the same bytes.
  if (encodeImage(image) != bytes) return std::nullopt;
  return image;
}

}  // namespace zal::test
