// A fresh directory that is removed with all it holds when the test ends.
#pragma once

#include <filesystem>
#include <string>

namespace zal::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Writes `text` to a file, replacing what it held.
void writeFile(const std::string& path, const std::string& text);
std::string readFile(const std::string& path);

}  // namespace zal::test
