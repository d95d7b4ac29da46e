// The agent's sockets: where it listens, and its end of one connection. Whatever a client sends must be whole images of
// records, and everything ends within two minutes: a Failure otherwise.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/wire_image.hpp"

namespace zal::campaign {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{120};

/// What a campaign finds.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The other end has closed.
struct Gone : Failure {
  using Failure::Failure;
};

class Descriptor {
 public:
  explicit Descriptor(int number = -1) noexcept : number_{number} {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_{std::exchange(other.number_, -1)} {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  [[nodiscard]] int get() const noexcept { return number_; }

 private:
  int number_;
};

class Connection {
 public:
  explicit Connection(Descriptor socket) noexcept : socket_{std::move(socket)} {}

  /// Sends all of it; nothing is to be reported when the other end has gone.
  void send(std::string_view bytes) const noexcept;
  /// Waits for bytes and reads at most so many of them. False when none came in time; throws Gone.
  bool receive(std::chrono::milliseconds patience, std::size_t most = 65536);
  /// Waits until the other end has read all that was sent to it. Unix-domain sockets alone tell.
  void awaitRead() const;
  /// The next of the images that have arrived.
  std::optional<test::WireImage> takeImage();
  /// The same, undecoded.
  std::optional<std::string_view> takeBytes();
  void endSending() const noexcept;
  /// Has the coming close tell the other end that the connection was reset.
  void resetOnClose() const noexcept;

 private:
  Descriptor socket_;
  std::string pending_;
  std::size_t taken_ = 0;
};

class Listener {
 public:
  /// At a path, or without one at a free port of 127.0.0.1.
  explicit Listener(std::string path = {});

  [[nodiscard]] std::string url() const;
  [[nodiscard]] bool isTcp() const noexcept { return path_.empty(); }
  Connection accept();
  std::optional<Connection> acceptWithin(std::chrono::milliseconds patience);
  void vanish() { socket_ = Descriptor{}; }
  void comeBack();

 private:
  std::string path_;
  int port_ = 0;
  Descriptor socket_;
};

}  // namespace zal::campaign
