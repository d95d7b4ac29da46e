#include "support/temp_directory.hpp"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

namespace bench {

TempDirectory::TempDirectory() {
  char name[] = "/tmp/zal-bench-XXXXXX";
  if (mkdtemp(name) == nullptr) throw std::runtime_error{"mkdtemp"};
  path_ = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace bench
