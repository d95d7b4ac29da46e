#include "tests/support/temp_dir.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace zal::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zal-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;  // a directory that cannot be removed must not end the test program
  std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out{path, std::ios::binary | std::ios::trunc};
  out << text;
}

std::string readFile(const std::string& path) {
  std::ifstream in{path, std::ios::binary};
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

}  // namespace zal::test
