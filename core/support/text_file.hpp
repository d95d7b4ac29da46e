// The beginning of a small file, such as those of proc(5), in a buffer of fixed size. One thread at a time.
#pragma once

#include <fcntl.h>

#include <cstddef>
#include <string_view>

#include "support/descriptor.hpp"

namespace zal {

/// Reads at most `Size` - 1 bytes of a file; a terminator follows what was read, which may itself hold NULs.
template <std::size_t Size>
class TextFile {
 public:
  explicit TextFile(const char* path) noexcept {
    const Descriptor file{open(path, O_RDONLY | O_CLOEXEC)};
    isOpen_ = file.isOpen();
    if (isOpen_) length_ = file.readUpTo(bytes_, Size - 1);
    bytes_[length_] = '\0';
  }

  /// Whether the file could be opened; one that could not be read is empty.
  [[nodiscard]] bool isOpen() const noexcept { return isOpen_; }
  [[nodiscard]] std::string_view text() const noexcept { return {bytes_, length_}; }

 private:
  char bytes_[Size];
  std::size_t length_ = 0;
  bool isOpen_ = false;
};

}  // namespace zal
