#include "fuzz/campaigns/support/endpoint.hpp"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <thread>

#include "tests/support/stand_in_agent.hpp"

namespace zal::campaign {

namespace {

bool awaitInput(int descriptor, std::chrono::milliseconds patience) {
  pollfd watched{descriptor, POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(patience.count())) > 0;
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

void Connection::send(std::string_view bytes) const noexcept {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

bool Connection::receive(std::chrono::milliseconds patience, std::size_t most) {
  if (!awaitInput(socket_.get(), patience)) return false;
  pending_ = pending_.substr(std::exchange(taken_, 0));  // a flood does not keep its memory
  std::array<char, 65536> block;
  const ssize_t count = recv(socket_.get(), block.data(), std::min(most, block.size()), 0);
  if (count <= 0) throw Gone{"the client closed the connection"};
  pending_.append(block.data(), static_cast<std::size_t>(count));
  return true;
}

void Connection::awaitRead() const {
  int unread = 1;
  for (const auto end = Clock::now() + kPatience; unread != 0;) {
    ioctl(socket_.get(), SIOCOUTQ, &unread);
    if (Clock::now() > end) throw Failure{"the client does not read"};
    std::this_thread::yield();
  }
}

std::optional<std::string_view> Connection::takeBytes() {
  const std::string_view rest = std::string_view{pending_}.substr(taken_);
  if (rest.size() < test::kImageHeaderSize) return std::nullopt;
  const std::size_t length = test::announcedLength(rest);
  if (length < test::kImageHeaderSize) throw Failure{"the client sent what is no image"};
  if (length > rest.size()) return std::nullopt;
  taken_ += length;
  return rest.substr(0, length);
}

std::optional<test::WireImage> Connection::takeImage() {
  const auto bytes = takeBytes();
  if (!bytes) return std::nullopt;
  auto image = test::decodeImage(*bytes);
  if (!image) throw Failure{"the client sent what is no image of records"};
  return image;
}

void Connection::endSending() const noexcept {
  shutdown(socket_.get(), SHUT_WR);
}

void Connection::resetOnClose() const noexcept {
  const linger atOnce{1, 0};
  setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

Listener::Listener(std::string path) : path_{std::move(path)} {
  comeBack();
}

std::string Listener::url() const {
  return isTcp() ? "tcp://127.0.0.1:" + std::to_string(port_) : "file://" + path_;
}

Connection Listener::accept() {
  auto connection = acceptWithin(kPatience);
  if (!connection) throw Failure{"the client does not connect"};
  return std::move(*connection);
}

std::optional<Connection> Listener::acceptWithin(std::chrono::milliseconds patience) {
  if (!awaitInput(socket_.get(), patience)) return std::nullopt;
  Descriptor accepted{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
  if (accepted.get() < 0) return std::nullopt;
  const int on = 1;
  setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // so that what is cut arrives cut
  return Connection{std::move(accepted)};
}

void Listener::comeBack() {
  socket_ = Descriptor{};  // before the address is taken anew
  socket_ = Descriptor{isTcp() ? test::listenAtPort(port_) : test::listenAtPath(path_)};
}

}  // namespace zal::campaign
