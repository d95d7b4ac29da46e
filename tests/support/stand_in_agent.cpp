#include "tests/support/stand_in_agent.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "tests/support/wait.hpp"

namespace zal::test {
namespace {

constexpr std::int32_t kGetConfigCode = 7;
constexpr std::int32_t kConfigCode = 8;

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error{errno, std::generic_category(), what};
  return result;
}

/// A listening socket at an address of either family, which is completed with the port.
template <class Address>
int listenAt(Address& address) {
  const int listener = checked(
      socket(reinterpret_cast<sockaddr&>(address).sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  socklen_t size = sizeof address;
  checked(bind(listener, reinterpret_cast<const sockaddr*>(&address), size), "bind");
  checked(::listen(listener, 4096), "listen");
  checked(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  return listener;
}

bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

}  // namespace

int listenAtPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(path.c_str());
  return listenAt(address);
}

int listenAtPort(int& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int listener = listenAt(address);
  port = ntohs(address.sin_port);
  return listener;
}

StandInAgent::StandInAgent(std::string socketPath) : path_{std::move(socketPath)} {
  listen();
}

void StandInAgent::answerConfiguration(std::string json) {
  const std::lock_guard hold{mutex_};
  configuration_ = std::move(json);
}

std::vector<StandInAgent::Received> StandInAgent::received() const {
  const std::lock_guard hold{mutex_};
  return received_;
}

bool StandInAgent::waitForEnd() const {
  return waitFor([&](const auto&) { return socket_ < 0; });
}

bool StandInAgent::waitFor(const std::function<bool(const std::vector<Received>&)>& condition) const {
  return waitUntil([&] {
    const std::lock_guard hold{mutex_};
    return condition(received_);
  });
}

std::optional<WireRecord> StandInAgent::waitForRecord(const std::function<bool(const WireRecord&)>& fits) const {
  std::optional<WireRecord> found;
  static_cast<void>(waitFor([&](const auto& received) {
    for (const Received& one : received)
      for (const WireRecord& record : one.image)
        if (!found && fits(record)) found = record;
    return found.has_value();
  }));
  return found;
}

bool StandInAgent::sendBytes(std::string_view bytes) {
  const std::lock_guard hold{mutex_};
  return sendAll(socket_, bytes);
}

void StandInAgent::die() {
  if (!thread_.joinable()) return;
  shutdown(listener_, SHUT_RDWR);
  {
    const std::lock_guard hold{mutex_};
    isDead_ = true;
    shutdown(socket_, SHUT_RDWR);
  }
  thread_.join();
  close(listener_);
}

void StandInAgent::listen() {
  isDead_ = false;
  listener_ = listenAtPath(path_);
  fcntl(listener_, F_SETFL, 0);  // accept is to wait
  thread_ = std::thread{[this] {
    for (int accepted = 0; (accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) serve(accepted);
  }};
}

/// Reads up to the end, also one inside an image: a client that stops may leave half of one behind.
void StandInAgent::serve(int socket) {
  {
    const std::lock_guard hold{mutex_};
    socket_ = socket;
    ++connections_;
    if (isDead_) shutdown(socket, SHUT_RDWR);
  }
  std::string pending;
  std::array<char, 65536> block;
  for (ssize_t count = 0; takeImages(pending) && (count = recv(socket, block.data(), block.size(), 0)) > 0;)
    pending.append(block.data(), static_cast<std::size_t>(count));
  const std::lock_guard hold{mutex_};
  socket_ = -1;
  close(socket);
}

bool StandInAgent::takeImages(std::string& pending) {
  while (pending.size() >= kImageHeaderSize) {
    const std::size_t length = announcedLength(pending);
    if (length > pending.size()) break;
    const auto image = decodeImage(pending.substr(0, length));
    if (!image) {
      ADD_FAILURE() << "connection " << connections_ << " sent what is no image of records";
      return false;
    }
    pending.erase(0, length);
    const std::lock_guard hold{mutex_};
    received_.push_back({connections_, *image});
    if (configuration_ && !image->empty() && image->front().code == kGetConfigCode)
      sendAll(socket_, encodeImage({{.code = kConfigCode, .payload = *configuration_}}));
  }
  return true;
}

}  // namespace zal::test
