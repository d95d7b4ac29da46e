#include "tests/support/stand_in_agent.hpp"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zal::test {
namespace {

constexpr std::chrono::seconds kDeadline{60};
constexpr std::int32_t kGetConfigCode = 7;
constexpr std::int32_t kConfigCode = 8;

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error{errno, std::generic_category(), what};
  return result;
}

/// On a socket whose client has gone meanwhile this fails, and nothing depends on it any more.
template <class Value>
void setOption(int socket, int level, int option, const Value& value) {
  static_cast<void>(setsockopt(socket, level, option, &value, sizeof value));
}

/// Binds a socket to an address of either family and listens.
template <class Address>
void bindAndListen(int socket, const Address& address) {
  checked(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  checked(::listen(socket, 16), "listen");
}

}  // namespace

/// A descriptor that is closed when the last thread that uses it lets go.
class StandInAgent::Descriptor {
 public:
  explicit Descriptor(int value) : value_{value} {}
  ~Descriptor() { close(value_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return value_; }

 private:
  const int value_;
};

struct StandInAgent::Connection {
  explicit Connection(int descriptor) : socket{descriptor} {}

  /// Sends the bytes in pieces, none of another sender's between them.
  bool sendAll(std::string_view bytes, std::size_t piece) {
    const std::lock_guard hold{sending};
    while (!bytes.empty()) {
      const ssize_t sent = ::send(socket.get(), bytes.data(), std::min(piece, bytes.size()), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
      if (piece == 1) waitUntilTaken();
    }
    return true;
  }

  /// Unix-domain: until the client has read it. TCP: until it stands in the client's receive buffer.
  void waitUntilTaken() const {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    int waiting = 0;
    pollfd broken{socket.get(), 0, 0};
    while (ioctl(socket.get(), SIOCOUTQ, &waiting) == 0 && waiting > 0 && poll(&broken, 1, 1) == 0 &&
           std::chrono::steady_clock::now() < end) {
    }
  }

  const Descriptor socket;
  int number = 0;  // fixed before any other thread sees the connection
  std::mutex sending;
  std::string pending;  // the agent's thread only
};

StandInAgent::StandInAgent(std::string socketPath)
    : path_{std::move(socketPath)},
      wakeUp_{std::make_shared<Descriptor>(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"))} {
  listen();
  thread_ = std::thread{[this] { run(); }};
}

StandInAgent::~StandInAgent() {
  {
    const std::lock_guard hold{mutex_};
    isStopping_ = true;
  }
  wake();
  thread_.join();
  if (!path_.empty()) unlink(path_.c_str());
}

std::string StandInAgent::url() const {
  return path_.empty() ? "tcp://127.0.0.1:" + std::to_string(port_) : "file://" + path_;
}

void StandInAgent::answerConfiguration(std::string json) {
  const std::lock_guard hold{mutex_};
  configuration_ = std::move(json);
}

int StandInAgent::accepted() const {
  const std::lock_guard hold{mutex_};
  return accepted_;
}

int StandInAgent::open() const {
  const std::lock_guard hold{mutex_};
  return static_cast<int>(connections_.size());
}

std::vector<StandInAgent::Received> StandInAgent::received() const {
  const std::lock_guard hold{mutex_};
  return received_;
}

std::string StandInAgent::fault() const {
  const std::lock_guard hold{mutex_};
  return fault_;
}

template <class Condition>
bool StandInAgent::waitUntilHolds(Condition condition) const {
  std::unique_lock hold{mutex_};
  return changed_.wait_for(hold, kDeadline, condition);
}

bool StandInAgent::waitForAccepted(int count) const {
  return waitUntilHolds([&] { return accepted_ >= count; });
}

bool StandInAgent::waitForOpen(int count) const {
  return waitUntilHolds([&] { return static_cast<int>(connections_.size()) == count; });
}

bool StandInAgent::waitFor(const std::function<bool(const std::vector<Received>&)>& condition) const {
  return waitUntilHolds([&] { return condition(received_); });
}

std::optional<WireRecord> StandInAgent::waitForRecord(const std::function<bool(const WireRecord&)>& fits) const {
  std::optional<WireRecord> found;
  std::size_t seen = 0;
  static_cast<void>(waitUntilHolds([&] {
    for (; !found && seen < received_.size(); ++seen) {
      const WireImage& image = received_[seen].image;
      if (const auto at = std::find_if(image.begin(), image.end(), fits); at != image.end()) found = *at;
    }
    return found.has_value();
  }));
  return found;
}

StandInAgent::ConnectionPtr StandInAgent::find(int number) const {
  const std::lock_guard hold{mutex_};
  const auto at = std::find_if(connections_.rbegin(), connections_.rend(), [&](const ConnectionPtr& connection) {
    return number == kNewest || connection->number == number;
  });
  return at == connections_.rend() ? nullptr : *at;
}

bool StandInAgent::send(const WireImage& image, int connection) {
  return sendBytes(encodeImage(image), connection);
}

bool StandInAgent::sendBytes(std::string_view bytes, int connection) {
  const ConnectionPtr found = find(connection);
  return found && found->sendAll(bytes, bytes.size());
}

bool StandInAgent::sendByteByByte(std::string_view bytes) {
  const ConnectionPtr found = find(kNewest);
  return found && found->sendAll(bytes, 1);
}

void StandInAgent::dropConnections() {
  std::vector<ConnectionPtr> dropped;
  {
    const std::lock_guard hold{mutex_};
    dropped.swap(connections_);
  }
  for (const ConnectionPtr& connection : dropped) shutdown(connection->socket.get(), SHUT_RDWR);
  dropped.clear();
  finishRound();
}

void StandInAgent::resetConnections() {
  {
    const std::lock_guard hold{mutex_};
    const linger reset{1, 0};
    for (const ConnectionPtr& connection : connections_)
      setOption(connection->socket.get(), SOL_SOCKET, SO_LINGER, reset);
    connections_.clear();
  }
  finishRound();
}

void StandInAgent::die() {
  {
    const std::lock_guard hold{mutex_};
    listener_.reset();
  }
  dropConnections();
}

void StandInAgent::listen() {
  const int family = path_.empty() ? AF_INET : AF_UNIX;
  auto listener = std::make_shared<Descriptor>(checked(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  if (path_.empty()) {
    const int on = 1;
    setOption(listener->get(), SOL_SOCKET, SO_REUSEADDR, on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    bindAndListen(listener->get(), address);
    socklen_t size = sizeof address;
    checked(getsockname(listener->get(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
    port_ = ntohs(address.sin_port);
  } else {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) throw std::length_error{"socket path too long: " + path_};
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    unlink(path_.c_str());
    bindAndListen(listener->get(), address);
  }
  {
    const std::lock_guard hold{mutex_};
    listener_ = std::move(listener);
  }
  wake();
}

void StandInAgent::wake() const {
  const std::uint64_t one = 1;
  static_cast<void>(write(wakeUp_->get(), &one, sizeof one));  // full means that a wake-up is under way already
}

void StandInAgent::finishRound() {
  std::unique_lock hold{mutex_};
  wake();
  changed_.wait_for(hold, kDeadline, [this, before = rounds_] { return rounds_ != before; });
}

void StandInAgent::run() {
  for (;;) {
    DescriptorPtr listener;
    std::vector<ConnectionPtr> connections;
    {
      const std::lock_guard hold{mutex_};
      if (isStopping_) return;
      listener = listener_;
      connections = connections_;
      ++rounds_;
      changed_.notify_all();
    }

    // A negative descriptor is left out by poll.
    std::vector<pollfd> watched{{wakeUp_->get(), POLLIN, 0}, {listener ? listener->get() : -1, POLLIN, 0}};
    for (const ConnectionPtr& connection : connections) watched.push_back({connection->socket.get(), POLLIN, 0});
    poll(watched.data(), watched.size(), -1);

    std::uint64_t ignored = 0;
    if (watched[0].revents != 0) static_cast<void>(read(wakeUp_->get(), &ignored, sizeof ignored));
    if (watched[1].revents != 0) acceptOne(*listener);
    for (std::size_t i = 0; i < connections.size(); ++i)
      if (watched[i + 2].revents != 0) readFrom(*connections[i]);
  }
}

void StandInAgent::acceptOne(const Descriptor& listener) {
  const int socket = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
  if (socket < 0) return;  // the client gave up meanwhile

  auto connection = std::make_shared<Connection>(socket);
  setOption(socket, SOL_SOCKET, SO_SNDTIMEO, timeval{kDeadline.count(), 0});
  if (path_.empty()) setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);

  const std::lock_guard hold{mutex_};
  if (listener_.get() != &listener) return;  // died while this one knocked
  connection->number = ++accepted_;
  connections_.push_back(std::move(connection));
}

void StandInAgent::readFrom(Connection& connection) {
  std::array<char, 65536> block;
  const ssize_t count = recv(connection.socket.get(), block.data(), block.size(), MSG_DONTWAIT);
  if (count > 0) {
    connection.pending.append(block.data(), static_cast<std::size_t>(count));
    takeImages(connection);
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    forget(connection);  // also inside an image: a client that stops may leave half of one behind
  }
}

void StandInAgent::takeImages(Connection& connection) {
  std::string_view rest{connection.pending};
  while (rest.size() >= kImageHeaderSize) {
    const auto length = announcedLength(rest.substr(0, kImageHeaderSize));
    if (length && *length > rest.size()) break;
    auto image = length ? decodeImage(rest.substr(0, *length)) : std::nullopt;
    if (!image) return reject(connection);
    handle(connection, std::move(*image));
    rest.remove_prefix(*length);
  }
  connection.pending.erase(0, connection.pending.size() - rest.size());
}

void StandInAgent::handle(Connection& connection, WireImage image) {
  const bool asksForConfiguration =
      std::any_of(image.begin(), image.end(), [](const WireRecord& record) { return record.code == kGetConfigCode; });
  std::optional<std::string> configuration;
  {
    const std::lock_guard hold{mutex_};
    if (asksForConfiguration) configuration = configuration_;
    received_.push_back({connection.number, std::move(image)});
  }
  if (!configuration) return;
  const std::string answer = encodeImage({{.code = kConfigCode, .payload = *configuration}});
  connection.sendAll(answer, answer.size());
}

void StandInAgent::reject(const Connection& connection) {
  {
    const std::lock_guard hold{mutex_};
    fault_ = "connection " + std::to_string(connection.number) + " sent what is no image of records";
  }
  forget(connection);
}

void StandInAgent::forget(const Connection& connection) {
  const std::lock_guard hold{mutex_};
  connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                    [&](const ConnectionPtr& other) { return other.get() == &connection; }),
                     connections_.end());
}

}  // namespace zal::test
