// Log lines to a file, which is opened and closed for each of a line's two pieces; and lines below the threshold.
#include <zal/zal_log.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "suites.hpp"
#include "support/temp_directory.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

constexpr const char* kFile = "bench/log";
constexpr int kLine = 61;

/// What has to be done for each piece.
void appendPiece(const std::string& path, const char* text, std::size_t length) {
  const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  struct stat status {};
  if (file < 0 || write(file, text, length) != static_cast<ssize_t>(length) || fstat(file, &status) != 0)
    throw std::runtime_error{"cannot write " + path};
  close(file);
}

void logByHand(const std::string& path, int number) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  char text[256];
  int length = std::snprintf(text, sizeof text, "*** %02ld:%02ld:%02ld.%03ld %s(%d):%s(): ", now.tv_sec / 3600 % 24,
                             now.tv_sec / 60 % 60, now.tv_sec % 60, now.tv_nsec / 1000000, kFile, kLine, __func__);
  appendPiece(path, text, static_cast<std::size_t>(length));
  length = std::snprintf(text, sizeof text, "reading %d of sensor %s is late\n", number, "cabinet-north");
  appendPiece(path, text, static_cast<std::size_t>(length));
}

void logWithZal(int level, int number) {
  Log_PrintMessage(level, kFile, kLine, __func__, "reading %d of sensor %s is late\n", number, "cabinet-north");
}

void requireLines(const std::string& directory) {
  std::uintmax_t bytes = 0;
  for (const auto& entry : std::filesystem::directory_iterator{directory}) bytes += entry.file_size();
  if (bytes == 0) throw std::runtime_error{"nothing was logged"};
}

}  // namespace

void measureLog(const Settings& settings, Report& report) {
  const int count = scaled(4000, settings.effort);
  const TempDirectory byHand;
  const TempDirectory byZal;
  ZAL_Log_SetDirectory(byZal.path().c_str());
  ZAL_Log_SetFileMaxBytes(1 << 29);
  const auto rate = [count](auto log) {
    int number = 0;
    return 1e9 / nanosecondsOf(count, [&] { log(number++); });
  };
  report.add(
      {"log lines to a file", "1/s", settings.rounds},
      {{"two times by hand", [&] { return rate([&](int number) { logByHand(byHand.path() + "/log", number); }); }},
       {"zal", [&] { return rate([](int number) { logWithZal(ZAL_LOG_WARNING, number); }); }}});
  requireLines(byHand.path());
  requireLines(byZal.path());

  const int many = scaled(20000000, settings.effort);
  volatile int threshold = ZAL_LOG_INFO;
  report.add({"log line below the threshold", "ns", settings.rounds},
             {{"comparison by hand",
               [&] {
                 return nanosecondsOf(many, [&] {
                   if (ZAL_LOG_DEBUG >= threshold) logWithZal(ZAL_LOG_DEBUG, many);
                 });
               }},
              {"ZAL_Log_GetLevel first",
               [&] {
                 return nanosecondsOf(many, [&] {
                   if (ZAL_LOG_DEBUG >= ZAL_Log_GetLevel()) logWithZal(ZAL_LOG_DEBUG, many);
                 });
               }},
              {"Log_PrintMessage", [&] { return nanosecondsOf(many, [&] { logWithZal(ZAL_LOG_DEBUG, many); }); }}});
}

}  // namespace bench
