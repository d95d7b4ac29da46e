#include "support/image.hpp"

#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

constexpr std::string_view kFormat{"A(iBBBBi)\0", 10};
constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kCountOffset = kHeaderSize + kFormat.size();

void appendNumber(std::string& out, std::uint32_t number) {
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  out.append(bytes, sizeof bytes);
}

void appendBytes(std::string& out, std::string_view bytes) {
  appendNumber(out, static_cast<std::uint32_t>(bytes.size()));
  out += bytes;
}

/// A text is sent with its terminator.
void appendText(std::string& out, std::string_view text) {
  appendNumber(out, static_cast<std::uint32_t>(text.size() + 1));
  out.append(text).push_back('\0');
}

std::uint32_t numberAt(std::string_view bytes, std::size_t offset) {
  std::uint32_t number = 0;
  if (bytes.size() < offset + sizeof number) throw std::runtime_error{"an image is too short"};
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

/// Moves `at` behind the bytes that stand there.
std::string_view takeBytes(std::string_view image, std::size_t& at) {
  const std::size_t size = numberAt(image, at);
  const std::size_t begin = at + sizeof(std::uint32_t);
  at = begin + size;
  return image.substr(begin, size);
}

std::string_view takeText(std::string_view image, std::size_t& at) {
  const std::string_view text = takeBytes(image, at);
  return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

}  // namespace

std::string_view imageOf(const Record& record) {
  static thread_local std::string image;
  image.assign("tpl\0\0\0\0\0", kHeaderSize).append(kFormat);
  appendNumber(image, 1);
  appendNumber(image, static_cast<std::uint32_t>(record.code));
  for (const std::string_view text : {record.service, record.name, std::string_view{}}) appendText(image, text);
  appendBytes(image, record.payload);
  appendNumber(image, record.requestId);
  const auto length = static_cast<std::uint32_t>(image.size());
  std::memcpy(image.data() + kLengthOffset, &length, sizeof length);
  return image;
}

std::size_t countOf(std::string_view image) {
  return numberAt(image, kCountOffset);
}

Record firstOf(std::string_view image) {
  if (countOf(image) == 0) throw std::runtime_error{"an image without records"};
  std::size_t at = kCountOffset + sizeof(std::uint32_t);
  Record record;
  record.code = static_cast<Code>(numberAt(image, at));
  at += sizeof(std::uint32_t);
  record.service = takeText(image, at);
  record.name = takeText(image, at);
  static_cast<void>(takeText(image, at));  // the optional parameter
  record.payload = takeBytes(image, at);
  record.requestId = numberAt(image, at);
  return record;
}

std::string_view ImageStream::next() {
  inbox_.take(taken_);
  taken_ = 0;
  for (;;) {
    const std::string_view bytes = inbox_.bytes();
    const std::size_t length = bytes.size() < kHeaderSize ? 0 : numberAt(bytes, kLengthOffset);
    if (length != 0 && length <= bytes.size()) {
      taken_ = length;
      return bytes.substr(0, length);
    }
    if (!inbox_.fill(socket_)) throw std::runtime_error{"the client has ended"};
  }
}

std::size_t ImageStream::expect(Code code) {
  const std::string_view image = next();
  if (firstOf(image).code != code) throw std::runtime_error{"an image of another kind was expected"};
  return countOf(image);
}

void ImageStream::greet() {
  expect(Code::kGetConfig);
  write({.code = Code::kConfig, .payload = "{}"});
}

}  // namespace bench
