// Plain Unix-domain sockets, for the candidates that are written by hand and for the agent of the library's clients.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

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

Descriptor listenAt(const std::string& path);
Descriptor acceptFrom(const Descriptor& listener);
Descriptor connectTo(const std::string& path);

/// Writes all of it, waiting where the socket is full.
void writeAll(const Descriptor& socket, std::string_view bytes);
/// Waits for so many bytes.
std::string readExactly(const Descriptor& socket, std::size_t size);

/// Bytes that have arrived and were not taken yet.
class Inbox {
 public:
  /// Waits for more; false at the end of the stream.
  bool fill(const Descriptor& socket);
  [[nodiscard]] std::string_view bytes() const noexcept { return {buffer_.data() + begin_, end_ - begin_}; }
  void take(std::size_t count) noexcept { begin_ += count; }

 private:
  std::vector<char> buffer_ = std::vector<char>(1 << 16);
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

/// A message behind its length, 4 bytes.
void appendFrame(std::string& out, char kind, std::string_view text);
/// The first whole frame in `bytes`; empty when there is none yet. It takes 4 bytes more than it holds.
std::string_view firstFrame(std::string_view bytes);

}  // namespace bench
