#include "support/socket.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace bench {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error{errno, std::generic_category(), what};
}

Descriptor checked(int number, const char* what) {
  if (number < 0) fail(what);
  return Descriptor{number};
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

Descriptor listenAt(const std::string& path) {
  unlink(path.c_str());
  Descriptor listener = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const sockaddr_un address = addressOf(path);
  if (bind(listener.get(), generic(address), sizeof address) != 0 || listen(listener.get(), 1) != 0) fail("listen");
  return listener;
}

Descriptor acceptFrom(const Descriptor& listener) {
  constexpr int kPatienceMs = 10000;
  pollfd waiting{listener.get(), POLLIN, 0};
  if (poll(&waiting, 1, kPatienceMs) != 1) fail("no client came");
  return checked(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept");
}

Descriptor connectTo(const std::string& path) {
  Descriptor connected = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const sockaddr_un address = addressOf(path);
  if (connect(connected.get(), generic(address), sizeof address) != 0) fail("connect");
  return connected;
}

void writeAll(const Descriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno != EINTR) fail("send");
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string readExactly(const Descriptor& socket, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t have = 0; have < size;) {
    const ssize_t count = recv(socket.get(), bytes.data() + have, size - have, MSG_WAITALL);
    if (count == 0) throw std::runtime_error{"the stream has ended"};
    if (count < 0 && errno != EINTR) fail("recv");
    if (count > 0) have += static_cast<std::size_t>(count);
  }
  return bytes;
}

bool Inbox::fill(const Descriptor& socket) {
  if (begin_ == end_) begin_ = end_ = 0;
  if (begin_ > 0 && end_ == buffer_.size()) {
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_), buffer_.end(), buffer_.begin());
    end_ -= std::exchange(begin_, 0);
  }
  if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);
  ssize_t count = 0;
  do {
    count = recv(socket.get(), buffer_.data() + end_, buffer_.size() - end_, 0);
  } while (count < 0 && errno == EINTR);
  if (count < 0) fail("recv");
  end_ += static_cast<std::size_t>(count);
  return count > 0;
}

void appendFrame(std::string& out, char kind, std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size() + 1);
  char header[sizeof length];
  std::memcpy(header, &length, sizeof length);
  out.append(header, sizeof header).append(1, kind).append(text);
}

std::string_view firstFrame(std::string_view bytes) {
  std::uint32_t length = 0;
  if (bytes.size() < sizeof length) return {};
  std::memcpy(&length, bytes.data(), sizeof length);
  return bytes.size() - sizeof length < length ? std::string_view{} : bytes.substr(sizeof length, length);
}

}  // namespace bench
