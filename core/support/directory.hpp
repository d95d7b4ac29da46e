// Goes through the entries of a directory. One thread at a time.
#pragma once

#include <dirent.h>

#include <memory>

namespace zal {

/// Closes the directory at the end of the scope.
class Directory {
 public:
  explicit Directory(const char* path) noexcept : stream_{opendir(path)} {}

  [[nodiscard]] bool isOpen() const noexcept { return stream_ != nullptr; }
  /// The next entry, valid until the next call; null at the end, and where no directory is open. On 32-bit machines
  /// readdir() would fail at an inode number of 64 bits.
  [[nodiscard]] const dirent64* next() const noexcept { return isOpen() ? readdir64(stream_.get()) : nullptr; }
  /// For openat(2) and its like, which then see this directory whatever its path names meanwhile.
  [[nodiscard]] int descriptor() const noexcept { return dirfd(stream_.get()); }

 private:
  struct Close {
    void operator()(DIR* stream) const noexcept { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace zal
