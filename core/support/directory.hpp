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
  /// The next entry, valid until the next call; null at the end. The directory must be open.
  [[nodiscard]] const dirent* next() const noexcept { return readdir(stream_.get()); }

 private:
  struct Close {
    void operator()(DIR* stream) const noexcept { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace zal
