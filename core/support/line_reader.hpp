// A file line by line, whatever its size, in a buffer of fixed size. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

namespace zal {

/// Gives at most `Size` - 1 characters of each line, without its newline; what a longer line has beyond is skipped.
template <std::size_t Size>
class LineReader {
 public:
  explicit LineReader(const char* path) noexcept : file_{std::fopen(path, "re")} {}

  [[nodiscard]] bool isOpen() const noexcept { return file_ != nullptr; }

  /// The next line, valid until the one after it; empty at the end, and when the file cannot be read.
  [[nodiscard]] std::optional<std::string_view> next() noexcept {
    if (!isOpen()) return std::nullopt;
    std::size_t length = 0;
    int character = getc_unlocked(file_.get());
    if (character == EOF) return std::nullopt;
    for (; character != EOF && character != '\n'; character = getc_unlocked(file_.get()))
      if (length < line_.size()) line_[length++] = static_cast<char>(character);
    return std::string_view{line_.data(), length};
  }

 private:
  struct Close {
    void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
  };

  std::unique_ptr<std::FILE, Close> file_;
  std::array<char, Size - 1> line_;
};

}  // namespace zal
