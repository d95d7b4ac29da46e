// Owns a file descriptor, and reads from it in the two ways that the library needs. Any thread.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace zal {

/// Closes its descriptor at the end of the scope; a negative one stands for "not open".
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : descriptor_{descriptor} {}
  ~Descriptor() {
    if (isOpen()) ::close(descriptor_);
  }
  Descriptor(Descriptor&& other) noexcept : descriptor_{std::exchange(other.descriptor_, -1)} {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
  [[nodiscard]] int get() const noexcept { return descriptor_; }

  /// One read, repeated only when a signal interrupted it: the count, 0 at the end, -1 on failure.
  [[nodiscard]] ssize_t readOnce(void* buffer, std::size_t size) const noexcept {
    ssize_t count = 0;
    do {
      count = ::read(descriptor_, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
  }

  /// Reads until `size` bytes are there, the input ends or it fails: the bytes that are there.
  [[nodiscard]] std::size_t readUpTo(void* buffer, std::size_t size) const noexcept {
    auto* const bytes = static_cast<char*>(buffer);
    std::size_t filled = 0;
    while (filled < size) {
      const ssize_t count = readOnce(bytes + filled, size - filled);
      if (count <= 0) break;
      filled += static_cast<std::size_t>(count);
    }
    return filled;
  }

 private:
  int descriptor_;
};

}  // namespace zal
