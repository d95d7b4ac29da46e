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

}  // namespace zal
