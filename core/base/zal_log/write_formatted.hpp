// How a piece of a line goes to a descriptor, the log file's or a stream's. Any thread.
#pragma once

#include <unistd.h>
#include <zal/zal_export.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace zal {

/// vdprintf with fewer system calls: a text of usual length is written in one go.
inline void ZAL_PRINTF_LIKE(2, 0) writeFormatted(int descriptor, const char* format, std::va_list arguments) noexcept {
  std::array<char, 512> text;
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  if (length < 0 || static_cast<std::size_t>(length) >= text.size()) {
    vdprintf(descriptor, format, again);
  } else {
    for (std::size_t left = static_cast<std::size_t>(length); left > 0;) {
      const ssize_t count = write(descriptor, text.data() + length - left, left);
      if (count <= 0) break;
      left -= static_cast<std::size_t>(count);
    }
  }
  va_end(again);
}

}  // namespace zal
