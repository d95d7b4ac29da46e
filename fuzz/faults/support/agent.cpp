#include "support/agent.hpp"

#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <list>
#include <string_view>
#include <system_error>
#include <vector>

#include "tests/support/wire_image.hpp"

namespace faults {

namespace {

using zal::test::WireRecord;
using Clock = std::chrono::steady_clock;

enum Code : std::int32_t {
  kResponse = 3,
  kRequest = 5,
  kNotify = 6,
  kGetConfig = 7,
  kConfig = 8,
  kGatewayRequest = 10,
  kGatewayResponse = 11
};

constexpr char kConfiguration[] =
    R"({"events":{"settings":{"e":{"enabled":true,"n":1,"d":0.5,"b":true,"t":"x","list":[{"n":1,"b":true}]}}}})";

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error{errno, std::generic_category(), what};
  return result;
}

template <class Address>
int listenAt(Address& address) {
  const auto family = reinterpret_cast<sockaddr&>(address).sa_family;
  const int listener = checked(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
  socklen_t size = sizeof address;
  checked(bind(listener, reinterpret_cast<const sockaddr*>(&address), size), "bind");
  checked(listen(listener, 128), "listen");
  checked(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  return listener;
}

int listenAtPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(path.c_str());
  return listenAt(address);
}

int listenAtPort(std::string& url) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int listener = listenAt(address);
  url = "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  return listener;
}

/// One client.
class Connection {
 public:
  explicit Connection(int socket) : socket_{socket} {}
  ~Connection() { close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] int socket() const noexcept { return socket_; }
  [[nodiscard]] bool isBroken() const noexcept { return isBroken_; }

  void receive() {
    std::array<char, 65536> block;
    const ssize_t count = recv(socket_, block.data(), block.size(), 0);
    if (count <= 0) {
      isBroken_ = count == 0 || errno != EAGAIN;
      return;
    }
    pending_.append(block.data(), static_cast<std::size_t>(count));
    while (!isBroken_ && takeImage()) continue;
  }

  /// Asks again when the last request was answered, or was asked long ago.
  void ask() {
    constexpr std::chrono::milliseconds kLong{50};
    const auto now = Clock::now();
    if (!isAnswered_ && now - asked_ < kLong) return;
    asked_ = now;
    isAnswered_ = false;
    send({.code = kRequest,
          .service = "svc",
          .name = "get",
          .payload = "{\"answered\":" + std::to_string(answers_) + "}",
          .requestId = ++requestId_ & 0x7fff});
  }

 private:
  void send(const WireRecord& record) {
    const std::string bytes = zal::test::encodeImage({record});
    if (::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
      isBroken_ = true;
  }

  bool takeImage() {
    if (pending_.size() < zal::test::kImageHeaderSize) return false;
    const std::size_t length = zal::test::announcedLength(pending_);
    if (length > pending_.size()) return false;
    const auto image = zal::test::decodeImage(std::string_view{pending_}.substr(0, length));
    isBroken_ = !image;
    if (isBroken_) return false;
    pending_.erase(0, length);
    for (const WireRecord& record : *image) take(record);
    return true;
  }

  void take(const WireRecord& record) {
    switch (record.code) {
      case kGetConfig:
        send({.code = kConfig, .payload = kConfiguration});
        send({.code = kNotify, .service = "svc", .name = "onProfileChanged", .payload = kConfiguration});
        return send({.code = kNotify, .name = "onConnect", .payload = kConfiguration});
      case kGatewayRequest:
        return send({.code = kGatewayResponse, .payload = R"({"ok":true})", .requestId = record.requestId});
      case kResponse:
        if (record.requestId != (requestId_ & 0x7fff) || record.payload.find("\"value\"") == std::string::npos) return;
        ++answers_;
        isAnswered_ = true;
    }
  }

  int socket_;
  std::string pending_{};
  bool isBroken_ = false;
  bool isAnswered_ = false;
  int answers_ = 0;
  int requestId_ = 0;
  Clock::time_point asked_ = Clock::now();
};

[[noreturn]] void serve(int listener) {
  constexpr int kTickMs = 2;
  std::list<Connection> connections;
  for (;;) {
    std::vector<pollfd> watched{{listener, POLLIN, 0}};
    for (const Connection& connection : connections) watched.push_back({connection.socket(), POLLIN, 0});
    poll(watched.data(), watched.size(), kTickMs);
    for (Connection& connection : connections) {
      connection.receive();
      if (!connection.isBroken()) connection.ask();
    }
    connections.remove_if([](const Connection& connection) { return connection.isBroken(); });
    const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (accepted >= 0) connections.emplace_back(accepted);
  }
}

}  // namespace

Agent::Agent(Transport transport) : pid_{-1} {
  if (transport == Transport::kUnixDomain) {
    path_ = "/tmp/zal_faults_agent_" + std::to_string(getpid()) + ".sock";
    url_ = "file://" + path_;
  }
  const int listener = path_.empty() ? listenAtPort(url_) : listenAtPath(path_);
  pid_ = checked(fork(), "fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve(listener);
  }
  close(listener);
}

Agent::~Agent() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  if (!path_.empty()) unlink(path_.c_str());
}

}  // namespace faults
