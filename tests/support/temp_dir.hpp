// A fresh directory that is removed with all it holds when the test ends, and small files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace zal::test {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zal-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;  // a directory that cannot be removed must not end the test program
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Writes `text` to a file, replacing what it held.
inline void writeFile(const std::string& path, const std::string& text) {
  std::ofstream{path, std::ios::binary | std::ios::trunc} << text;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in{path, std::ios::binary};
  return {std::istreambuf_iterator<char>{in}, {}};
}

}  // namespace zal::test
