#include "common/zal_public_address.hpp"

#include <zal/zal_system.h>

#include <arpa/inet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/descriptor.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_literals;
using namespace zal::test;
using ::testing::EndsWith;
using ::testing::StartsWith;

const std::string kSilence = "silence";
const std::string kFailed = "STUN binding resp: failed !\n";

// A STUN server on the loopback. It answers requests with the messages of its script in turn, and all further ones with
// the last. A datagram that is no request ends it.
class Responder {
 public:
  explicit Responder(std::vector<std::string> script, const char* address = "127.0.0.1", std::uint16_t port = 0)
      : script_{std::move(script)}, own_{AF_INET, htons(port), {inet_addr(address)}, {}} {
    socklen_t size = sizeof own_;
    isBound_ = bind(socket_.get(), reinterpret_cast<sockaddr*>(&own_), size) == 0;
    getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own_), &size);
    thread_ = std::thread{[this] { serve(); }};
  }
  ~Responder() { stop(); }

  [[nodiscard]] bool isBound() const { return isBound_; }
  [[nodiscard]] std::uint16_t port() const { return ntohs(own_.sin_port); }

  /// All requests that were received.
  const std::vector<std::string>& stop() {
    sendto(socket_.get(), "", 1, 0, reinterpret_cast<const sockaddr*>(&own_), sizeof own_);
    if (thread_.joinable()) thread_.join();
    return requests_;
  }

 private:
  void serve() {
    std::array<char, 64> bytes{};
    sockaddr_in client{};
    socklen_t size = sizeof client;
    auto* const from = reinterpret_cast<sockaddr*>(&client);
    while (recvfrom(socket_.get(), bytes.data(), bytes.size(), 0, from, &size) == 20) {
      const std::string& answer = script_[std::min(requests_.size(), script_.size() - 1)];
      requests_.emplace_back(bytes.data(), 20);
      if (answer != kSilence) sendto(socket_.get(), answer.data(), answer.size(), 0, from, size);
    }
  }

  zal::Descriptor socket_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::vector<std::string> script_;
  std::vector<std::string> requests_;
  sockaddr_in own_;
  bool isBound_ = false;
  std::thread thread_;
};

std::string learnt() {
  std::array<char, 16> text{"none"};
  EXPECT_EQ(ZAL_GetPublicIpAddress(text.data(), text.size()), 0);
  return text.data();
}

// Asks again when another program has the local port, which is taken at random. Gives the requests.
std::vector<std::string> ask(const std::vector<std::string>& script, const std::string& expectedLog = "",
                             int expected = 1) {
  for (int tries = 0;; ++tries) {
    Responder server{script};
    const LogCapture log;
    const int result = ZAL_SearchForPublicAddress("localhost", 9, server.port());
    if (result == 0 && log.contains("ZAL_SearchForPublicAddress - bind(") && tries < 20) continue;
    EXPECT_EQ(result, expected);
    EXPECT_THAT(log.text(), StartsWith(expectedLog));
    EXPECT_EQ(log.text().empty(), expectedLog.empty()) << log.text();
    return server.stop();
  }
}

std::string message(const std::string& attributes, const std::string& type = "\1\1"s) {
  return type + std::string(18, '\x42') + attributes;
}

std::string mapped(char last) {
  return "\0\1\0\x8\0\1\x12\x34\xc0\0\2"s + last;
}

const std::string kXorMapped = "\0\x20\0\x8\0\1\x12\x34\xe1\x12\xa6\x43"s;

TEST(StunAnswer, IsSearchedInsideWhatCame) {
  const auto other = [](const std::string& length, std::size_t size) {
    return "\x80\x22"s + length + std::string(size, 'v');
  };
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {message(kXorMapped), "192.0.2.1", ""},
      {message(other("\0\5"s, 8) + mapped(100)), "192.0.2.100", ""},
      {message(mapped(3) + kXorMapped), "192.0.2.3", ""},
      {message("\0\1\0\x14"s + std::string(20, 'v') + mapped(4)), "192.0.2.4", ""},
      {message(""), "192.0.2.4", ""},
      {message("\0\1\0"s), "192.0.2.4", ""},
      {message(mapped(5).substr(0, 11)), "192.0.2.4", ""},
      {message(other("\xff\xfd"s, 0) + mapped(5)), "192.0.2.4", ""},
      {message(std::string(180, '\0')), "192.0.2.4", ""},
      {message(other("\0\xb0"s, 176) + mapped(5)), "192.0.2.4", ""},
      {message(mapped(5), "\1\x11"), "192.0.2.4", kFailed},
      {"\1", "192.0.2.4", kFailed},
      {"", "192.0.2.4", kFailed},
  };
  EXPECT_EQ(learnt(), "none");
  std::string transaction;
  for (const auto& [answer, expected, log] : cases) {
    const std::string request = ask({answer}, log).front();
    EXPECT_EQ(learnt(), expected) << ::testing::PrintToString(answer);
    EXPECT_EQ(request.substr(0, 8), "\0\1\0\0\x21\x12\xa4\x42"s);
    EXPECT_NE(std::exchange(transaction, request.substr(8)), request.substr(8));
  }
}

TEST(StunQuestion, IsAskedUpToFiveTimes) {
  EXPECT_GE(ask({kSilence, kSilence, message(kXorMapped)}).size(), 3U);
  EXPECT_EQ(learnt(), "192.0.2.1");
  EXPECT_EQ(ask({kSilence}, "ZAL_SearchForPublicAddress - lStunServerIp (127.0.0.1:", -1).size(), 5U);
}

TEST(StunQuestion, WaitsForDescriptorsOfAnyNumber) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = 1100;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "so many descriptors are not allowed here";
  std::vector<zal::Descriptor> filled;
  do filled.emplace_back(dup(0));
  while (filled.back().isOpen() && filled.back().get() < 1023);
  ask({message(kXorMapped)});
  EXPECT_EQ(learnt(), "192.0.2.1");
}

TEST(Discovery, AsksServersUntilOneTellsTheAddress) {
  ask({message(mapped(9))});
  ASSERT_EQ(learnt(), "192.0.2.9");
  const std::string own = "127.77." + std::to_string(getpid() >> 8 & 255) + '.' + std::to_string(getpid() & 255);
  Responder nameless{{message("")}};
  Responder server{{message(mapped(100))}, own.c_str(), 3478};
  if (!server.isBound()) GTEST_SKIP() << "another program has the port of STUN here";
  // Each more than once, since a local port may be in use; the server is passed over then.
  const std::string withPort = "127.0.0.1:" + std::to_string(nameless.port());
  std::vector<std::string> texts = {"1.2.3.4:1", "no..host.at.all", withPort, withPort, own, own, own, "127.0.0.2:1"};
  std::vector<char*> servers = {nullptr};
  for (std::string& text : texts) servers.push_back(text.data());
  const LogCapture log;

  EXPECT_EQ(ZAL_SetPublicIpAddress(servers.data(), static_cast<std::uint32_t>(servers.size())), 1);
  EXPECT_EQ(learnt(), "192.0.2.100");
  EXPECT_FALSE(nameless.stop().empty());
  EXPECT_STREQ(servers[1], "1.2.3.4") << "a text ends where its port began";
  EXPECT_STREQ(servers.back(), "127.0.0.2:1") << "not asked any more";
  EXPECT_THAT(log.text(), StartsWith("cannot resolve1 no..host.at.all: "));
  EXPECT_EQ(ZAL_SetPublicIpAddress(servers.data(), 1), -1);
  EXPECT_THAT(log.text(), EndsWith("ZAL_SetPublicIpAddress called too often \n"));
  std::array<char, 8> cut{};
  ZAL_GetPublicIpAddress(cut.data(), cut.size());
  EXPECT_STREQ(cut.data(), "192.0.2");
}

TEST(Discovery, IsLimitedToOneInTenSeconds) {
  using zal::publicaddress::beginDiscovery;
  for (const auto& [now, begins] : {std::pair{9, false}, {10, true}, {19, false}, {20, true}, {12, false}, {30, true}})
    EXPECT_EQ(beginDiscovery(now), begins) << now;
  const LogCapture log;
  EXPECT_EQ(ZAL_SetPublicIpAddress(nullptr, 3), -1);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(ZAL_SetPublicIpAddress(nullptr, 0), -1);
  EXPECT_EQ(log.text(), "ZAL_SetPublicIpAddress called too often \n") << "a call without servers counts";
}

TEST(Ip4Text, HasFourNumbersBelow256) {
  for (const char* const valid : {"0.0.0.0", "255.255.255.255", "010.0.0.1", "192.000002.2.1"})
    EXPECT_EQ(ZAL_IsValidIp4(valid), 1) << valid;
  for (const char* const invalid : {"256.1.1.1", "1.2.3", "1.2.3.4.", "1.2.3.4.5", "1..2.3", ".1.2.3", "1.2.3.4a",
                                    " 1.2.3.4", "1.2.3.99999999999", "1.2.3.-4", "...", ""})
    EXPECT_EQ(ZAL_IsValidIp4(invalid), 0) << invalid;
  EXPECT_EQ(ZAL_IsValidIp4(nullptr), 0);
}

}  // namespace
