// From URLs to socket addresses, for both sides. Nothing here keeps state or logs: the caller knows which text to log.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ipc.hpp"

namespace zal::ipc {

namespace {

constexpr char kFileScheme[] = "file://";
constexpr char kTcpScheme[] = "tcp://";
constexpr char kDefaultSocketPath[] = "/tmp/zalIPC.sock";
constexpr std::size_t kFieldBytes = 1024;

/// libuv cuts a path that a socket address does not hold, and would serve a socket of another name.
std::optional<Endpoint> unixDomain(const char* path) noexcept {
  Endpoint endpoint{kUnixDomain, {}, {}};
  const std::size_t length = std::strlen(path);
  if (length == 0 || length >= sizeof endpoint.path) return std::nullopt;
  std::memcpy(endpoint.path, path, length);
  return endpoint;
}

std::optional<Endpoint> tcp(const char* host, long port) noexcept {
  Endpoint endpoint{kTcp, {}, {}};
  if (port < 1 || port > UINT16_MAX) return std::nullopt;
  if (uv_ip4_addr(host, static_cast<int>(port), &endpoint.address) != 0) return std::nullopt;
  return endpoint;
}

/// "host:port", as it follows the scheme of a server's URL.
std::optional<Endpoint> tcpFromText(const char* text) noexcept {
  char host[INET_ADDRSTRLEN]{};
  const char* const colon = std::strchr(text, ':');
  if (colon == nullptr) return std::nullopt;
  const auto length = static_cast<std::size_t>(colon - text);
  if (length >= sizeof host) return std::nullopt;
  std::memcpy(host, text, length);
  return tcp(host, std::strtol(colon + 1, nullptr, 10));
}

}  // namespace

Transport transportOf(const char* url) noexcept {
  if (std::strstr(url, kFileScheme) != nullptr) return kUnixDomain;
  return std::strstr(url, kTcpScheme) != nullptr ? kTcp : kNoTransport;
}

std::optional<Endpoint> listenEndpoint(const char* url) noexcept {
  switch (transportOf(url)) {
    case kUnixDomain:
      return unixDomain(url + std::strlen(kFileScheme));
    case kTcp:
      return tcpFromText(url + std::strlen(kTcpScheme));
    case kNoTransport:
      break;
  }
  return unixDomain(kDefaultSocketPath);
}

std::optional<Endpoint> connectEndpoint(const char* url, ZAL_UriParserHandle uri) noexcept {
  if (transportOf(url) == kTcp) {
    char host[kFieldBytes]{};
    std::int32_t port = 0;
    ZAL_UriParser_GetHost(uri, host, sizeof host);
    static_cast<void>(ZAL_UriParser_GetPortNumber(uri, &port));  // no port leaves 0, which is not valid either
    return tcp(host, port);
  }
  char path[kFieldBytes] = "/";
  ZAL_UriParser_GetPath(uri, path + 1, sizeof path - 1);
  return unixDomain(path);
}

}  // namespace zal::ipc
