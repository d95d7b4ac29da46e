// The public address: which servers are asked and how often, and the address that was learnt last, under the one lock
// of this module. The question to a server is in zal_public_address/stun.cpp.
#include "common/zal_public_address.hpp"

#include <zal/zal_runtime.h>
#include <zal/zal_system.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "common/zal_public_address/stun.hpp"
#include "support/lock.hpp"
#include "support/number.hpp"
#include "support/text.hpp"

namespace {

using zal::stun::Answer;
using zal::stun::Result;

constexpr std::size_t kShortestHost = 8;
constexpr std::uint16_t kStunPort = 3478;
constexpr std::int64_t kSecondsBetween = 10;

constinit zal::StaticMutex stateMutex;
constinit std::array<char, INET_ADDRSTRLEN> publicAddress ZAL_GUARDED_BY(stateMutex) = {};
constinit std::int64_t lastDiscovery ZAL_GUARDED_BY(stateMutex) = 0;

/// ZAL_SearchForPublicAddress, with what the server told.
Answer search(const char* host, std::size_t length, std::uint16_t port) noexcept {
  if (host == nullptr || length < kShortestHost) return {Result::kNoAnswer, {}};
  const Answer answer = zal::stun::query({host, strnlen(host, length)}, port);
  if (answer.address) {
    const zal::LockGuard hold{stateMutex};
    inet_ntop(AF_INET, &*answer.address, publicAddress.data(), publicAddress.size());
  }
  return answer;
}

/// Asks a server given as "host" or "host:port"; its ":" becomes a terminator.
Answer askServer(char* server) noexcept {
  if (server == nullptr) return {Result::kNoAnswer, {}};
  std::uint16_t port = kStunPort;
  if (char* const colon = std::strchr(server, ':'); colon != nullptr) {
    *colon = '\0';
    port = static_cast<std::uint16_t>(zal::readInt32(colon + 1));
  }
  return search(server, std::strlen(server), port);
}

}  // namespace

bool zal::publicaddress::beginDiscovery(std::int64_t now) noexcept {
  const LockGuard hold{stateMutex};
  if (now - lastDiscovery < kSecondsBetween) return false;
  lastDiscovery = now;
  return true;
}

int ZAL_SearchForPublicAddress(const char* host, std::size_t length, std::uint16_t port) noexcept {
  return search(host, length, port).result;
}

int ZAL_SetPublicIpAddress(char** servers, uint32_t count) noexcept {
  if (!zal::publicaddress::beginDiscovery(ZAL_GetUnsignedTimestamp())) {
    std::fprintf(stderr, "%s called too often \n", __func__);
    return Result::kNoAnswer;
  }
  Answer last{Result::kNoAnswer, {}};
  if (servers == nullptr) return last.result;
  for (uint32_t i = 0; i < count && !last.address; ++i) last = askServer(servers[i]);
  return last.result;
}

int ZAL_GetPublicIpAddress(char* buffer, size_t size) noexcept {
  const zal::LockGuard hold{stateMutex};
  if (publicAddress[0] != '\0') zal::copyCut(buffer, publicAddress.data(), size);
  return 0;
}

int ZAL_IsValidIp4(const char* text) noexcept {
  if (text == nullptr) return 0;
  int dots = 0;
  int group = -1;  // its value, -1 before the first digit
  for (; *text != '\0'; ++text) {
    if (*text >= '0' && *text <= '9') {
      group = std::max(group, 0) * 10 + (*text - '0');
      if (group > 255) return 0;
    } else if (*text == '.' && group >= 0 && dots < 3) {
      ++dots;
      group = -1;
    } else {
      return 0;
    }
  }
  return dots == 3 && group >= 0 ? 1 : 0;
}
