// The STUN side of the public address: finding the server, asking it, and walking through the attributes of its answer.
// Every function is for any thread. Which servers are asked, and what is kept, is the front door's.
#include "common/zal_public_address/stun.hpp"

#include <zal/zal_runtime.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "support/descriptor.hpp"
#include "support/text.hpp"

namespace {

using namespace std::chrono_literals;
using zal::stun::Answer;
using zal::stun::Result;
using Bytes = std::span<const std::uint8_t>;
using Host = std::array<char, 46>;

constexpr const char* kFunction = "ZAL_SearchForPublicAddress";

constexpr int kAttempts = 5;
constexpr std::chrono::milliseconds kAnswerTime = 500ms;
constexpr unsigned kPauseMs = 200;
constexpr unsigned kFirstLocalPort = 8000;
constexpr unsigned kLocalPorts = 1000;

constexpr std::size_t kHeaderSize = 20;
constexpr std::size_t kAnswerSize = 200;
constexpr std::uint16_t kBindingSuccess = 0x0101;

using AddressBytes = std::array<std::uint8_t, 4>;
constexpr AddressBytes kCookie = {0x21, 0x12, 0xA4, 0x42};

/// An attribute that holds an address, and what its bytes are XORed with.
struct AddressAttribute {
  std::uint16_t type;
  AddressBytes mask;
};
constexpr AddressAttribute kAddressAttributes[] = {{0x0001, {}}, {0x0020, kCookie}};
constexpr std::size_t kAttributeHeader = 4;  // type and length
constexpr std::size_t kAddressLength = 8;    // family and port, then the address of IPv4
constexpr std::size_t kAddressOffset = 4;

std::uint16_t u16At(Bytes bytes, std::size_t at) noexcept {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

in_addr unmasked(Bytes value, const AddressBytes& mask) noexcept {
  AddressBytes bytes{};
  std::transform(mask.begin(), mask.end(), value.begin() + kAddressOffset, bytes.begin(),
                 [](unsigned m, unsigned v) { return static_cast<std::uint8_t>(m ^ v); });
  in_addr address{};
  std::memcpy(&address, bytes.data(), sizeof address);
  return address;
}

struct FreeAddresses {
  void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};

/// The address of a host; a name is replaced by its address in dotted form.
std::optional<in_addr> resolve(Host& host) noexcept {
  in_addr address{};
  if (inet_aton(host.data(), &address) != 0) return address;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  if (const int error = getaddrinfo(host.data(), nullptr, &hints, &found); error != 0) {
    std::fprintf(stderr, "cannot resolve1 %s: %s (errcode:%d)\n", host.data(), gai_strerror(error), error);
    return std::nullopt;
  }
  const std::unique_ptr<addrinfo, FreeAddresses> list{found};
  if (list == nullptr || list->ai_family != AF_INET) {
    std::fputs("cannot find IPv4 address\n", stderr);
    return std::nullopt;
  }
  sockaddr_in first{};
  std::memcpy(&first, list->ai_addr, sizeof first);
  inet_ntop(AF_INET, &first.sin_addr, host.data(), socklen_t{sizeof host});
  return first.sin_addr;
}

bool bindToRandomPort(int socket) noexcept {
  std::uint16_t random = 0;
  ZAL_ReadRandom(&random, sizeof random);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(static_cast<std::uint16_t>(kFirstLocalPort + random % kLocalPorts));
  if (bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0) return true;
  std::fprintf(stderr, "%s - bind(%d) failed .. (%s) \n", kFunction, socket, std::strerror(errno));
  return false;
}

bool sendRequest(int socket, const sockaddr_in& server) noexcept {
  std::array<std::uint8_t, kHeaderSize> request = {0x00, 0x01, 0x00, 0x00};  // Binding request without attributes
  std::copy(kCookie.begin(), kCookie.end(), request.begin() + 4);
  for (std::size_t block = 8; block < request.size(); block += 4) ZAL_ReadRandom(request.data() + block, 4);
  const auto* const to = reinterpret_cast<const sockaddr*>(&server);
  if (sendto(socket, request.data(), request.size(), 0, to, sizeof server) >= 0) return true;
  std::fprintf(stderr, "%s sendto error\n", kFunction);
  return false;
}

/// The result of poll(2) for the whole time, which signals do not shorten.
int waitForAnswer(int socket) noexcept {
  const auto end = std::chrono::steady_clock::now() + kAnswerTime;
  pollfd waiting{socket, POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    const int ready = poll(&waiting, 1, static_cast<int>(std::max(left, 0ms).count()));
    if (ready >= 0 || errno != EINTR) return ready;
  }
}

std::optional<in_addr> receiveAddress(int socket) noexcept {
  std::array<std::uint8_t, kAnswerSize> bytes{};
  // Without waiting: a datagram that made the socket readable is dropped when its checksum turns out to be wrong.
  const ssize_t count = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0) {
    std::fprintf(stderr, "%s recvfrom error\n", kFunction);
    return std::nullopt;
  }
  const Bytes message{bytes.data(), static_cast<std::size_t>(count)};
  if (message.size() < 2 || u16At(message, 0) != kBindingSuccess) {
    std::fputs("STUN binding resp: failed !\n", stderr);
    return std::nullopt;
  }
  return zal::stun::addressIn(message);
}

/// One attempt, from a socket and a port of its own; empty when no answer came in time.
std::optional<Answer> ask(const sockaddr_in& server) noexcept {
  const zal::Descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  if (!socket.isOpen() || !bindToRandomPort(socket.get()) || !sendRequest(socket.get(), server))
    return Answer{Result::kNotAsked, {}};
  const int ready = waitForAnswer(socket.get());
  if (ready < 0) return Answer{Result::kNoAnswer, {}};
  if (ready > 0) return Answer{Result::kAnswered, receiveAddress(socket.get())};
  ZAL_Sleep(kPauseMs);
  return std::nullopt;
}

}  // namespace

std::optional<in_addr> zal::stun::addressIn(std::span<const std::uint8_t> message) noexcept {
  Bytes rest = message.subspan(std::min(kHeaderSize, message.size()));
  while (rest.size() >= kAttributeHeader) {
    const std::uint16_t type = u16At(rest, 0);
    const std::size_t length = u16At(rest, 2);
    rest = rest.subspan(kAttributeHeader);
    const auto* const attribute = std::find_if(std::begin(kAddressAttributes), std::end(kAddressAttributes),
                                               [&](const AddressAttribute& known) { return known.type == type; });
    if (attribute != std::end(kAddressAttributes) && length == kAddressLength && rest.size() >= kAddressLength)
      return unmasked(rest, attribute->mask);
    const std::size_t padded = (length + 3) / 4 * 4;
    rest = rest.subspan(std::min(padded, rest.size()));
  }
  return std::nullopt;
}

zal::stun::Answer zal::stun::query(std::string_view server, std::uint16_t port) noexcept {
  Host host{};
  copyCut(host.data(), server, host.size());
  const auto address = resolve(host);
  if (!address) return {Result::kNotAsked, {}};
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr = *address;
  for (int attempt = 0; attempt < kAttempts; ++attempt)
    if (const auto answer = ask(to)) return *answer;
  std::fprintf(stderr, "%s - lStunServerIp (%s:%u) timed out \n", kFunction, host.data(), unsigned{port});
  return {Result::kNoAnswer, {}};
}
