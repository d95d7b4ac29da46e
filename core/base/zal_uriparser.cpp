// The ZAL_UriParser_ functions: a handle over one URI that uriparser has split. Any thread, one at a time per handle.
//
// uriparser gives an empty path segment (as in "a/" or "a//b") and an empty host a range outside the parsed text, so
// positions are never computed from its ranges: path and query are found in the text itself, once, at creation. The
// parser that decodes into fields of fixed size is vorn_uri.
#include <uriparser/Uri.h>
#include <zal/zal_uri.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

#include "support/text.hpp"

struct ZAL_UriParserHandle_ {
  UriUriA uri{};
  std::string_view path;       // without its leading "/"
  std::string_view afterPath;  // "?" and the query, "#" and the fragment

  [[nodiscard]] bool hasSegment() const noexcept { return uri.pathHead != nullptr; }
  [[nodiscard]] bool hasQuery() const noexcept { return afterPath.starts_with('?'); }
};

namespace {

/// A range as a text of its own; an empty one wherever it points.
std::string_view textOf(const UriTextRangeA& range) noexcept {
  if (range.first == range.afterLast) return {};
  return {range.first, static_cast<std::size_t>(range.afterLast - range.first)};
}

/// Finds the path of a URI that uriparser has accepted. Neither scheme nor authority can hold "?" or "#" there, and the
/// authority ends at the next "/".
void locatePath(ZAL_UriParserHandle_& handle, std::string_view text) noexcept {
  const std::size_t end = std::min(text.find_first_of("?#"), text.size());
  handle.afterPath = text.substr(end);

  std::string_view path = text.substr(0, end);
  const std::string_view scheme = textOf(handle.uri.scheme);
  if (!scheme.empty()) path.remove_prefix(scheme.size() + 1);
  if (path.starts_with("//")) path.remove_prefix(std::min(path.find('/', 2), path.size()));
  if (path.starts_with('/')) path.remove_prefix(1);
  handle.path = path;
}

}  // namespace

ZAL_UriParserHandle ZAL_UriParser_Create(const char* uri) noexcept {
  if (uri == nullptr) return nullptr;

  std::unique_ptr<ZAL_UriParserHandle_> handle{new (std::nothrow) ZAL_UriParserHandle_{}};
  // When it fails, uriparser has freed whatever it made before.
  if (!handle || uriParseSingleUriA(&handle->uri, uri, nullptr) != URI_SUCCESS) return nullptr;
  locatePath(*handle, uri);
  return handle.release();
}

void ZAL_UriParser_GetHost(ZAL_UriParserHandle handle, char* buffer, size_t size) noexcept {
  if (handle == nullptr || handle->uri.hostText.first == nullptr) return;
  zal::copyCut(buffer, textOf(handle->uri.hostText), size);
}

int ZAL_UriParser_GetPortNumber(ZAL_UriParserHandle handle, int32_t* port) noexcept {
  if (port == nullptr) return ZAL_URI_NOT_AVAILABLE;
  *port = 0;
  if (handle == nullptr || handle->uri.portText.first == nullptr) return ZAL_URI_NOT_AVAILABLE;

  // A port is digits up to the end of the authority, so the conversion stops inside the text.
  const std::string_view digits = textOf(handle->uri.portText);
  if (!digits.empty()) {
    constexpr long kMaxPort = std::numeric_limits<std::int32_t>::max();
    *port = static_cast<std::int32_t>(std::min(std::strtol(digits.data(), nullptr, 10), kMaxPort));
  }
  return ZAL_URI_OK;
}

void ZAL_UriParser_GetRootName(ZAL_UriParserHandle handle, char* buffer, size_t size) noexcept {
  zal::clearBuffer(buffer, size);
  if (handle == nullptr || !handle->hasSegment()) return;

  const std::string_view root = handle->path.substr(0, handle->path.find('/'));
  if (root.size() + 1 < size) zal::copyCut(buffer, root, size);
}

void ZAL_UriParser_GetPath(ZAL_UriParserHandle handle, char* buffer, size_t size) noexcept {
  zal::clearBuffer(buffer, size);
  if (handle == nullptr || !handle->hasSegment()) return;
  zal::copyCut(buffer, handle->path, size);
}

void ZAL_UriParser_GetPathQuery(ZAL_UriParserHandle handle, char* buffer, size_t size) noexcept {
  zal::clearBuffer(buffer, size);
  if (handle == nullptr || size == 0 || !handle->hasSegment()) return;

  if (const std::size_t slash = handle->path.find('/'); slash != std::string_view::npos) {
    const char* second = handle->path.data() + slash + 1;  // the parsed text goes on to its terminator
    zal::copyCut(buffer, second, size - 1);
  } else if (handle->hasQuery()) {
    zal::copyCut(buffer, handle->afterPath, size - 1);
  }
}

int ZAL_UriParser_FindTagValue(ZAL_UriParserHandle handle, const char* tag, char* buffer, size_t size) noexcept {
  zal::clearBuffer(buffer, size);
  if (handle == nullptr || tag == nullptr || !handle->hasQuery()) return 0;

  const std::string_view name{tag};
  const std::string_view text = handle->afterPath.substr(1);
  const std::size_t match = text.find(name);
  if (match == std::string_view::npos) return 0;

  // The character behind the tag is skipped unseen; with it, the value may lie behind the query, and is empty then.
  const std::string_view query = text.substr(0, text.find('#'));
  const std::string_view value = query.substr(std::min(match + name.size() + 1, query.size()));
  zal::copyCut(buffer, value.substr(0, value.find('&')), size);
  return 1;
}

void ZAL_UriParser_Destroy(ZAL_UriParserHandle handle) noexcept {
  if (handle == nullptr) return;
  uriFreeUriMembersA(&handle->uri);
  delete handle;
}
