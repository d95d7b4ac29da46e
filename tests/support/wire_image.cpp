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

/// Takes the parts of an image from its front; after the first part that is missing, every other one is too.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_{bytes} {}

  std::uint32_t number() {
    const std::string_view bytes = take(4);
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
  }

  std::string blob() { return std::string{take(number())}; }

  /// A blob that ends in its only NUL, without it.
  std::string text() {
    std::string bytes = blob();
    if (bytes.find('\0') != bytes.size() - 1) intact_ = false;
    if (!bytes.empty()) bytes.pop_back();
    return bytes;
  }

  void expect(std::string_view bytes) {
    if (take(bytes.size()) != bytes) intact_ = false;
  }

  [[nodiscard]] bool intact() const { return intact_; }
  [[nodiscard]] bool atEnd() const { return intact_ && rest_.empty(); }

 private:
  std::string_view take(std::size_t size) {
    if (!intact_ || size > rest_.size()) {
      intact_ = false;
      return {};
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }

  std::string_view rest_;
  bool intact_ = true;
};

WireRecord readRecord(Reader& reader) {
  WireRecord record;
  record.code = static_cast<std::int32_t>(reader.number());
  record.service = reader.text();
  record.name = reader.text();
  record.optionalParam = reader.text();
  record.payload = reader.blob();
  record.requestId = static_cast<std::int32_t>(reader.number());
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

std::optional<std::size_t> announcedLength(std::string_view header) {
  Reader reader{header};
  reader.expect(kMagic);
  const std::size_t length = reader.number();
  if (!reader.intact() || length < kImageHeaderSize) return std::nullopt;
  return length;
}

std::optional<WireImage> decodeImage(std::string_view bytes) {
  if (announcedLength(bytes.substr(0, kImageHeaderSize)) != bytes.size()) return std::nullopt;

  Reader reader{bytes.substr(kImageHeaderSize)};
  reader.expect(kFormat);
  WireImage image;
  for (std::uint32_t count = reader.number(); count > 0 && reader.intact(); --count)
    image.push_back(readRecord(reader));
  if (!reader.atEnd()) return std::nullopt;
  return image;
}

}  // namespace zal::test
