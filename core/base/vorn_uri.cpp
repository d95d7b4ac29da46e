// The vorn_uri_ functions: percent-decode a text and split it into fields of fixed size. Any thread: only arguments and
// local buffers are used. Nothing here fails; what is too long is cut. The handle over uriparser is zal_uriparser.
#include <zal/zal_runtime.h>
#include <zal/zal_uri.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "support/services.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kUriSize = 2047;     // decoded text of vorn_uri_parse, with its terminator
constexpr std::size_t kTagUriSize = 1023;  // the same for the tag searches
constexpr std::size_t kKeyLength = 127;    // characters of a key that take part in a comparison

template <std::size_t Size>
void store(char (&field)[Size], std::string_view text) noexcept {
  zal::copyCut(field, text, Size);
}

int hexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// What two characters mean as a hexadecimal number, read up to the first one that is no digit.
char hexByte(char high, char low) noexcept {
  const int first = hexDigit(high);
  if (first < 0) return '\0';
  const int second = hexDigit(low);
  return static_cast<char>(second < 0 ? first : first * 16 + second);
}

/// Decodes in one pass that ends where the output is full. Returns the decoded text, which stands in `output`.
std::string_view decode(const char* source, char* output, std::size_t size) noexcept {
  zal::clearBuffer(output, size);
  if (source == nullptr || output == nullptr) return {};

  std::size_t length = 0;
  while (*source != '\0' && length + 1 < size) {
    char byte = *source;
    if (byte == '%' && source[1] != '\0' && source[2] != '\0') {
      byte = hexByte(source[1], source[2]);
      source += 2;
    }
    ++source;
    if (byte != '\0') output[length++] = byte;
  }
  return {output, length};
}

/// A decimal number as strtol reads it, saturated to 32 bits where long is wider.
std::int32_t decimal(const char* text) noexcept {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<long>(std::strtol(text, nullptr, 10), Limits::min(), Limits::max()));
}

/// The TCP port that the services database lists for a scheme, else 0. No service has an empty name.
std::int32_t servicePort(std::string_view scheme) noexcept {
  if (scheme.empty()) return 0;
  zal::ServiceReader services;
  while (const auto service = services.next())
    if (service->protocol == "tcp" && service->isCalled(scheme)) return service->port;
  return 0;
}

/// Takes the scheme of a "file:" URI; returns what follows its "//", nothing without one.
std::string_view takeFileScheme(std::string_view text, vorn_uri_parts& parts) noexcept {
  store(parts.scheme, "file");
  const std::size_t slashes = text.find("//");
  return slashes == std::string_view::npos ? std::string_view{} : text.substr(slashes + 2);
}

/// Takes scheme, host and port of a text with "//" before any "?"; returns what is left to split.
std::string_view takeAuthority(std::string_view text, vorn_uri_parts& parts) noexcept {
  const std::size_t slashes = text.find("//");
  if (slashes == std::string_view::npos || text.find('?') < slashes) return text;

  if (slashes > 0 && text[slashes - 1] == ':') store(parts.scheme, text.substr(0, slashes - 1));
  const std::string_view rest = text.substr(slashes + 2);
  const std::size_t hostLength = std::min(rest.find('/'), rest.size());
  store(parts.host, rest.substr(0, hostLength));

  if (char* colon = std::strchr(parts.host, ':'); colon != nullptr) {
    parts.port = decimal(colon + 1);
    *colon = '\0';
  } else {
    parts.port = servicePort(parts.scheme);
  }
  return rest.substr(hostLength);
}

/// Stores path, query and fragment. The path ends at the "?", and only without one at the "#".
void splitPath(std::string_view text, vorn_uri_parts& parts) noexcept {
  const std::string_view field = text.substr(0, sizeof parts.query - 1);
  const std::size_t question = field.find('?');
  const std::size_t hash = field.find('#');

  store(parts.path, field.substr(0, std::min(question, question == std::string_view::npos ? hash : question)));
  if (hash != std::string_view::npos) store(parts.fragment, field.substr(hash + 1));
  if (question == std::string_view::npos) return;
  const std::string_view query = field.substr(question + 1);
  store(parts.query, query.substr(0, query.find('#')));
}

/// The value of the first pair in the query of a decoded text whose key is `tag`.
std::optional<std::string_view> findValue(std::string_view text, std::string_view tag) noexcept {
  const std::string_view wanted = tag.substr(0, kKeyLength);
  for (std::size_t mark = text.find('?'); mark != std::string_view::npos; mark = text.find('&')) {
    text.remove_prefix(mark + 1);
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return std::nullopt;

    if (text.substr(0, std::min(equals, kKeyLength)) == wanted) {
      const std::string_view value = text.substr(equals + 1);
      return value.substr(0, value.find('&'));
    }
  }
  return std::nullopt;
}

}  // namespace

int vorn_uri_decode(const char* source, char* output, size_t size) noexcept {
  decode(source, output, size);
  return 0;
}

int vorn_uri_parse(const char* uri, vorn_uri_parts* parts) noexcept {
  if (parts == nullptr) return 0;
  std::memset(parts, 0, sizeof *parts);

  char working[kUriSize];
  const std::string_view text = decode(uri, working, sizeof working);
  std::replace(working, working + text.size(), '\\', '/');
  splitPath(text.starts_with("file:") ? takeFileScheme(text, *parts) : takeAuthority(text, *parts), *parts);
  return 0;
}

int vorn_uri_get_plugin_name(const char* uri, char* buffer, size_t size) noexcept {
  vorn_uri_parts parts;
  vorn_uri_parse(uri, &parts);

  std::string_view path{parts.path};
  if (path.starts_with('/')) path.remove_prefix(1);
  zal::copyCut(buffer, path.substr(0, path.find('/')), size);
  return 0;
}

int vorn_uri_find_tag(const char* uri, const char* tag) noexcept {
  if (tag == nullptr) return 0;
  char working[kTagUriSize];
  return findValue(decode(uri, working, sizeof working), tag).has_value() ? 1 : 0;
}

int vorn_uri_find_tagvalue(const char* uri, const char* tag, char* buffer, size_t size) noexcept {
  if (tag == nullptr) return 0;
  char working[kTagUriSize];
  const auto value = findValue(decode(uri, working, sizeof working), tag);
  if (!value) return 0;

  zal::clearBuffer(buffer, size);
  zal::copyCut(buffer, *value, size);
  return 1;
}

int vorn_uri_getPathQuery(const vorn_uri_parts* parts, char* buffer, size_t size) noexcept {
  if (buffer == nullptr || size == 0) return 0;
  const int decoded = vorn_uri_decode(parts == nullptr ? nullptr : parts->path, buffer, size);
  if (parts == nullptr || parts->query[0] == '\0') return decoded;

  zalstrlcat(buffer, "?", size);
  return static_cast<int>(zalstrlcat(buffer, parts->query, size));
}
