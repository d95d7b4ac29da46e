#include "calls/log_lines.hpp"

#include <unistd.h>
#include <zal/zal_log.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "memory/scenario.hpp"

namespace faults {

namespace {

constexpr int kLines = 6;
constexpr int kBytesOfManyLines = 1'000'000;

/// A line of usual length, or one that is longer than what a line is formatted in.
std::string lineOf(int number) {
  return "line " + std::to_string(number) + (number % 2 == 0 ? " end\n" : std::string(700, '.') + " end\n");
}

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file{path};
  return {std::istreambuf_iterator<char>{file}, {}};
}

/// What was printed to the standard streams from an offset on.
std::string printedFrom(off_t start) {
  std::string text(static_cast<std::size_t>(lseek(STDERR_FILENO, 0, SEEK_END) - start), '\0');
  text.resize(static_cast<std::size_t>(pread(STDERR_FILENO, text.data(), text.size(), start)));
  return text;
}

class LogDirectory {
 public:
  LogDirectory() {
    const Aside aside;
    path_ = std::filesystem::temp_directory_path() / "zal_faults_XXXXXX";
    require(mkdtemp(path_.data()) != nullptr, "a temporary directory");
  }
  ~LogDirectory() {
    const Aside aside;
    std::filesystem::remove_all(path_);
  }
  LogDirectory(const LogDirectory&) = delete;
  LogDirectory& operator=(const LogDirectory&) = delete;

  [[nodiscard]] const char* path() const noexcept { return path_.c_str(); }
  /// All that stands in its files.
  [[nodiscard]] std::string content() const {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator{path_}) all += contentOf(entry.path());
    return all;
  }

 private:
  std::string path_;
};

}  // namespace

void logLines() {
  const LogDirectory directory;
  const off_t start = lseek(STDERR_FILENO, 0, SEEK_END);
  const bool isSet = FAULTS_ATTEMPT(-1, ZAL_Log_SetDirectory(directory.path())) == 0;
  ZAL_Log_SetFileMaxBytes(kBytesOfManyLines);
  for (int i = 0; i < kLines; ++i) FAULTS_REQUIRE(zal_fprintf(stderr, "%s", lineOf(i).c_str()) == 0);
  const std::string inFiles = directory.content();
  const std::string onStream = printedFrom(start);
  for (int i = 0; i < kLines; ++i)
    require(inFiles.find(lineOf(i)) != std::string::npos || onStream.find(lineOf(i)) != std::string::npos,
            "no line is lost");

  ZAL_Log_SetFileMaxBytes(1);
  ZAL_Log_SetFileMaxFiles(1);
  for (int i = 0; i < kLines; ++i) FAULTS_REQUIRE(zal_fprintf(stderr, "%d\n", i) == 0);
  ZAL_Log_FileClose("other");
  if (strikeCount() == 0 || !isSet) return;
  disarm();
  ZAL_Log_SetFileMaxBytes(kBytesOfManyLines);
  FAULTS_REQUIRE(zal_fprintf(stderr, "%s", "afterwards\n") == 0);
  require(directory.content().find("afterwards\n") != std::string::npos, "lines go to the file again");
}

}  // namespace faults
