// Any text as a URI for the parser that accepts everything: decoded, split and searched, in buffers of any size.
#include <zal/zal_uri.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "support/fuzz.hpp"

namespace {

using zal::fuzz::Buffer;
using zal::fuzz::Text;

std::string_view front(std::string_view text, std::size_t size) {
  return text.substr(0, size);
}

template <std::size_t Size>
std::string_view fieldOf(const char (&field)[Size]) {
  const std::size_t length = strnlen(field, Size);
  FUZZ_CHECK(length < Size);
  return {field, length};
}

void checkDecoding(const Text& uri, std::size_t size) {
  const Buffer whole{uri.size() + 1};
  const Buffer cut{size};
  vorn_uri_decode(uri.get(), whole.data(), whole.size());
  vorn_uri_decode(uri.get(), cut.data(), size);
  FUZZ_CHECK(uri.view().find('%') != std::string_view::npos || whole.text() == uri.view());
  if (size != 0) FUZZ_CHECK(cut.text() == front(whole.text(), size - 1));
}

void checkPathQuery(const vorn_uri_parts& parts, std::size_t size) {
  const Buffer whole{sizeof parts.path + sizeof parts.query};
  const Buffer cut{size};
  const int length = vorn_uri_getPathQuery(&parts, whole.data(), whole.size());
  vorn_uri_getPathQuery(&parts, cut.data(), size);
  const bool hasQuery = parts.query[0] != '\0';
  FUZZ_CHECK(length == (hasQuery ? static_cast<int>(whole.text().size()) : 0));
  if (hasQuery) FUZZ_CHECK(whole.text().ends_with(parts.query));
  if (size != 0) FUZZ_CHECK(cut.text() == front(whole.text(), size - 1));
}

void checkParts(const Text& uri, std::size_t size) {
  vorn_uri_parts parts;
  std::memset(&parts, 0x5A, sizeof parts);
  vorn_uri_parse(uri.get(), &parts);
  std::string_view path = fieldOf(parts.path);
  FUZZ_CHECK(fieldOf(parts.host).find(':') == std::string_view::npos);
  FUZZ_CHECK(fieldOf(parts.scheme).size() < sizeof parts.scheme);
  FUZZ_CHECK(fieldOf(parts.query).find('#') == std::string_view::npos);
  FUZZ_CHECK(fieldOf(parts.fragment).find('\\') == std::string_view::npos);
  checkPathQuery(parts, size);

  if (path.starts_with('/')) path.remove_prefix(1);
  const Buffer name{sizeof parts.path};
  const Buffer cut{size};
  vorn_uri_get_plugin_name(uri.get(), name.data(), name.size());
  vorn_uri_get_plugin_name(uri.get(), cut.data(), size);
  FUZZ_CHECK(name.text() == front(path, path.find('/')));
  if (size != 0) FUZZ_CHECK(cut.text() == front(name.text(), size - 1));
}

void checkTag(const Text& uri, const Text& tag, std::size_t size) {
  const Buffer value{uri.size() + 1};
  const Buffer cut{size};
  value.data()[0] = '\0';
  const int isFound = vorn_uri_find_tag(uri.get(), tag.get());
  FUZZ_CHECK(vorn_uri_find_tagvalue(uri.get(), tag.get(), value.data(), value.size()) == isFound);
  FUZZ_CHECK(vorn_uri_find_tagvalue(uri.get(), tag.get(), cut.data(), size) == isFound);
  FUZZ_CHECK(value.text().find('&') == std::string_view::npos);
  if (isFound != 0 && size != 0) FUZZ_CHECK(cut.text() == front(value.text(), size - 1));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::Input input{data, size};
  const std::size_t bufferSize = input.byte();
  const Text tag = input.text();
  const Text uri = input.text();
  checkDecoding(uri, bufferSize);
  checkParts(uri, bufferSize);
  checkTag(uri, tag, bufferSize);
  return 0;
}
