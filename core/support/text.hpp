// Bounded texts: what the library writes into a caller's buffer of a given size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace zal {

/// Fills `buffer` with zeros; a null buffer is left alone.
inline void clearBuffer(char* buffer, std::size_t size) noexcept {
  if (buffer != nullptr) std::memset(buffer, 0, size);
}

/// zalstrlcpy for a text that need not be terminated: stores at most `size` - 1 characters of it, and terminates.
/// A null buffer or a size of 0 stores nothing.
inline void copyCut(char* buffer, std::string_view text, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return;
  const std::size_t length = std::min(text.size(), size - 1);
  if (length != 0) std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

/// A text that is put together from pieces, and cut to `Size` - 1 characters.
template <std::size_t Size>
class CutText {
 public:
  CutText() noexcept { text_[0] = '\0'; }

  [[nodiscard]] const char* text() const noexcept { return text_; }
  [[nodiscard]] std::size_t length() const noexcept { return length_; }
  /// A terminator follows it.
  [[nodiscard]] std::string_view view() const noexcept { return {text_, length_}; }

  void append(std::string_view piece) noexcept {
    const std::size_t length = std::min(piece.size(), Size - 1 - length_);
    piece.copy(text_ + length_, length);
    shorten(length_ + length);
  }
  void shorten(std::size_t length) noexcept {
    length_ = length;
    text_[length] = '\0';
  }

 private:
  char text_[Size];
  std::size_t length_ = 0;
};

}  // namespace zal
