// How a piece of a line goes to a descriptor, the log file's or a stream's. Any thread.
#pragma once

#include <unistd.h>
#include <zal/zal_export.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace zal {

/// False when not all of it was written.
inline bool writeAll(int descriptor, const char* bytes, std::size_t size) noexcept {
  while (size > 0) {
    const ssize_t count = write(descriptor, bytes, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

/// vdprintf with fewer system calls: a text of usual length is written in one go. The arguments are left untouched.
/// False when not all of it was written.
inline bool ZAL_PRINTF_LIKE(2, 0) writeFormatted(int descriptor, const char* format, std::va_list arguments) noexcept {
  std::array<char, 512> text;
  std::va_list copy;
  va_copy(copy, arguments);
  const int length = std::vsnprintf(text.data(), text.size(), format, copy);
  va_end(copy);
  if (length >= 0 && static_cast<std::size_t>(length) < text.size())
    return writeAll(descriptor, text.data(), static_cast<std::size_t>(length));
  va_copy(copy, arguments);
  const int written = vdprintf(descriptor, format, copy);
  va_end(copy);
  return written >= 0;
}

}  // namespace zal
