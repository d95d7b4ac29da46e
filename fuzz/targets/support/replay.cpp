// Runs a target over the files that are named, and over those of the directories that are named: for compilers without
// libFuzzer, and as a test of every build.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.hpp"

/// What a target does once, before its first input, if it has to.
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

void runFile(const std::filesystem::path& path) {
  std::ifstream file{path, std::ios::binary};
  const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
  if (!file.is_open() || file.bad()) zal::fuzz::fail("the file can be read", path.c_str(), 0);
  std::printf("%s\n", path.c_str());  // the last one printed is the one that failed
  static_cast<void>(std::fflush(stdout));
  static_cast<void>(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

std::size_t run(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) {
    runFile(path);
    return 1;
  }
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator{path}) count += run(entry.path());
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) count += run(argv[i]);
  std::printf("%zu inputs\n", count);
  return count == 0 ? 1 : 0;
}
