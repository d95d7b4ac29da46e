// What the targets share: reading an input piece by piece, and failing when an invariant does not hold. What a target
// hands to the library lies in blocks of exactly its size, so that the sanitizers see each byte that is read beyond.
#pragma once

#include <zal/zal_log.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

/// What libFuzzer calls, and the replay of a corpus.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process when the library contradicts itself or what is written about it.
#define FUZZ_CHECK(condition) ((condition) ? void() : ::zal::fuzz::fail(#condition, __FILE__, __LINE__))

namespace zal::fuzz {

[[noreturn]] inline void fail(const char* condition, const char* file, int line) noexcept {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

/// A buffer of exactly so many bytes, for results of the library; of none it still has an address.
class Buffer {
 public:
  explicit Buffer(std::size_t size) : bytes_{new char[size]}, size_{size} { std::memset(bytes_.get(), 0x5A, size); }

  [[nodiscard]] char* data() const noexcept { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  /// What stands before the terminator, which there must be.
  [[nodiscard]] std::string_view text() const noexcept {
    const std::size_t length = strnlen(data(), size_);
    FUZZ_CHECK(length < size_);
    return {data(), length};
  }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

/// A terminated text in a block of exactly its size.
class Text {
 public:
  explicit Text(std::string_view text) : bytes_{new char[text.size() + 1]}, size_{text.size()} {
    text.copy(bytes_.get(), size_);
    bytes_[size_] = '\0';
  }

  [[nodiscard]] const char* get() const noexcept { return bytes_.get(); }
  [[nodiscard]] char* data() noexcept { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] std::string_view view() const noexcept { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

/// Takes an input apart. Where it ends, numbers are 0 and texts empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) noexcept : rest_{reinterpret_cast<const char*>(data), size} {}

  [[nodiscard]] std::size_t left() const noexcept { return rest_.size(); }
  [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

  std::string_view take(std::size_t count) noexcept {
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  std::uint8_t byte() noexcept {
    const std::string_view one = take(1);
    return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one.front());
  }
  /// Little-endian on every machine, so that a corpus means the same everywhere.
  template <class Number>
  Number number() noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) value |= std::uint64_t{byte()} << 8 * i;
    return static_cast<Number>(value);
  }
  /// A number from 0 to `count` - 1.
  std::size_t below(std::size_t count) noexcept { return byte() % count; }

  /// The characters up to the next NUL, which is taken too.
  Text text() {
    const std::string_view characters = take(std::min(rest_.find('\0'), rest_.size()));
    static_cast<void>(take(1));
    return Text{characters};
  }

 private:
  std::string_view rest_;
};

/// One input in sixteen, told by its size, is run with all log lines, since what they print comes from outside, too.
inline void chooseLogLevel(std::size_t size) noexcept {
  ZAL_Log_SetLevel(size % 16 == 0 ? ZAL_LOG_TRACE : ZAL_LOG_ERROR + 1);
}

}  // namespace zal::fuzz
