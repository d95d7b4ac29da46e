// A directory of its own, gone at the end of the scope.
#pragma once

#include <string>

namespace bench {

class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// The path of something new in it.
  [[nodiscard]] std::string next() { return path_ + "/" + std::to_string(++count_); }

 private:
  std::string path_;
  int count_ = 0;
};

}  // namespace bench
