// Any text as a URI for the strict parser: its parts, in buffers of any size, must fit together.
#include <zal/zal_uri.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/fuzz.hpp"
#include "support/uri.hpp"

namespace {

using zal::fuzz::Buffer;
using zal::fuzz::Text;

using Part = void (*)(ZAL_UriParserHandle handle, char* buffer, std::size_t size);

/// A part as a buffer of that size gets it; each of these functions clears the buffer.
std::string partOf(ZAL_UriParserHandle uri, Part part, std::size_t size) {
  const Buffer buffer{size};
  part(uri, buffer.data(), size);
  return size == 0 ? std::string{} : std::string{buffer.text()};
}

std::string_view front(std::string_view text, std::size_t size) {
  return text.substr(0, size);
}

void checkPath(ZAL_UriParserHandle uri, std::string_view whole, std::size_t size) {
  const std::size_t enough = whole.size() + 2;
  const std::string path = partOf(uri, ZAL_UriParser_GetPath, enough);
  const std::string root = partOf(uri, ZAL_UriParser_GetRootName, enough);
  const std::string rest = partOf(uri, ZAL_UriParser_GetPathQuery, enough);
  FUZZ_CHECK(whole.find(path) != std::string_view::npos);
  FUZZ_CHECK(root == front(path, path.find('/')));
  FUZZ_CHECK(whole.ends_with(rest));
  FUZZ_CHECK(rest.empty() || rest.front() == '?' || path.size() > root.size());
  if (size == 0) return;
  FUZZ_CHECK(partOf(uri, ZAL_UriParser_GetPath, size) == front(path, size - 1));
  FUZZ_CHECK(partOf(uri, ZAL_UriParser_GetRootName, size) == (root.size() + 1 < size ? root : ""));
  FUZZ_CHECK(partOf(uri, ZAL_UriParser_GetPathQuery, size) == front(rest, size > 1 ? size - 2 : 0));
}

void checkTag(ZAL_UriParserHandle uri, std::string_view whole, const Text& tag, std::size_t size) {
  const Buffer value{whole.size() + 1};
  const Buffer cut{size};
  const int isFound = ZAL_UriParser_FindTagValue(uri, tag.get(), value.data(), value.size());
  FUZZ_CHECK(ZAL_UriParser_FindTagValue(uri, tag.get(), cut.data(), size) == isFound);
  FUZZ_CHECK(isFound == 0 || whole.find(tag.view()) != std::string_view::npos);
  FUZZ_CHECK(isFound != 0 || value.text().empty());
  FUZZ_CHECK(value.text().find('&') == std::string_view::npos);
  FUZZ_CHECK(whole.find(value.text()) != std::string_view::npos);
  if (size != 0) FUZZ_CHECK(cut.text() == front(value.text(), size - 1));
}

void checkAuthority(ZAL_UriParserHandle uri, std::string_view whole, std::size_t size) {
  std::int32_t port = -1;
  const int result = ZAL_UriParser_GetPortNumber(uri, &port);
  FUZZ_CHECK(port >= 0);
  FUZZ_CHECK(result == ZAL_URI_OK || port == 0);
  Text host{whole};
  ZAL_UriParser_GetHost(uri, host.data(), whole.size() + 1);
  FUZZ_CHECK(whole.find(host.get()) != std::string_view::npos);
  const Buffer cut{size};
  ZAL_UriParser_GetHost(uri, cut.data(), size);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::Input input{data, size};
  const std::size_t bufferSize = input.byte();
  const Text tag = input.text();
  const Text text = input.text();
  const zal::UriPtr uri{ZAL_UriParser_Create(text.get())};
  if (!uri) return 0;
  checkPath(uri.get(), text.view(), bufferSize);
  checkTag(uri.get(), text.view(), tag, bufferSize);
  checkAuthority(uri.get(), text.view(), bufferSize);
  return 0;
}
