// Logging: the level filter, the prefix of each line, the hex dump and the environment that configures it all. Every
// function is for any thread. The log file, its rotation and its lock are in zal_log/log_file.cpp.
#include <zal/zal_log.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "base/zal_log/log_file.hpp"
#include "base/zal_log/write_formatted.hpp"
#include "support/log.hpp"

constinit std::atomic<int> zal::logLevel{ZAL_LOG_INFO};

const char* debugEnvNames[4] = {"ZAL_DEBUG_LEVEL", "ZAL_DEBUG_DIR", "ZAL_DEBUG_MAXBYTES", "ZAL_DEBUG_MAXFILES"};

namespace {

constexpr const char* kMarkers[] = {"", "...", "...", "---", "***", "###"};
static_assert(std::size(kMarkers) == ZAL_LOG_ERROR + 1);

constexpr int kDumpWidth = 16;
constexpr int kDumpGroup = 8;

constinit std::atomic<bool> environmentRead{false};

/// A log call must not change the error number that its caller is about to report.
class KeepErrno {
 public:
  KeepErrno() noexcept : saved_{errno} {}
  ~KeepErrno() { errno = saved_; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  int saved_;
};

/// Levels below 0 pass when the threshold does; they look like level 0.
const char* markerOf(int level) noexcept {
  return level < ZAL_LOG_VERBOSE ? "" : kMarkers[level];
}

/// The monotonic clock as hours:minutes:seconds.milliseconds, empty when it cannot be read.
using Stamp = std::array<char, 20>;
Stamp stampOfNow() noexcept {
  Stamp stamp{};
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return stamp;
  std::snprintf(stamp.data(), stamp.size(), "%02u:%02u:%02u.%03u", static_cast<unsigned>(now.tv_sec / 3600 % 24),
                static_cast<unsigned>(now.tv_sec / 60 % 60), static_cast<unsigned>(now.tv_sec % 60),
                static_cast<unsigned>(now.tv_nsec / 1000000 % 1000));
  return stamp;
}

/// The flag is set before the environment is read, so that output made while reading does not come back here. A thread
/// that logs meanwhile goes on with the settings as they are at that moment.
void readEnvironmentOnce() noexcept {
  if (environmentRead.load(std::memory_order_relaxed)) return;
  if (!environmentRead.exchange(true)) ZAL_Log_CheckEnv();
}

/// The text bypasses the stream's buffer; a stream without a descriptor (one over memory) gets it through the buffer.
void ZAL_PRINTF_LIKE(2, 0) writeToStream(FILE* stream, const char* format, va_list arguments) noexcept {
  if (stream == nullptr) return;
  if (const int descriptor = fileno(stream); descriptor >= 0) {
    static_cast<void>(zal::writeFormatted(descriptor, format, arguments));  // there is nowhere else to go
  } else {
    std::vfprintf(stream, format, arguments);
  }
}

int toInt(const char* text) noexcept {
  return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

/// What each variable of debugEnvNames sets, in the same order.
constexpr void (*kSettings[])(const char* value) = {
    [](const char* value) { ZAL_Log_SetLevel(toInt(value)); },
    [](const char* value) { static_cast<void>(ZAL_Log_SetDirectory(value)); },
    [](const char* value) { ZAL_Log_SetFileMaxBytes(toInt(value)); },
    [](const char* value) { ZAL_Log_SetFileMaxFiles(toInt(value)); },
};
static_assert(std::size(kSettings) == std::size(debugEnvNames));

struct Origin {
  int level;
  const char* file;
  int line;
  const char* function;
};

/// Not inlined, so that a filtered call does not pay for what only this needs.
__attribute__((noinline)) void ZAL_PRINTF_LIKE(2, 0)
    printLine(const Origin& origin, const char* format, va_list arguments) noexcept {
  const Stamp stamp = stampOfNow();
  if (origin.level >= ZAL_LOG_WARNING) {
    zal_fprintf(stderr, "%s %s %s(%d):%s(): ", markerOf(origin.level), stamp.data(), origin.file, origin.line,
                origin.function);
  } else {
    zal_fprintf(stderr, "%s %s: ", markerOf(origin.level), stamp.data());
  }
  zal_vfprintf(stderr, format, arguments);
}

char shownAs(unsigned char byte) noexcept {
  return std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
}

/// One line of the dump: `count` bytes, at most kDumpWidth, in two groups, then the same bytes as characters.
void dumpLine(const unsigned char* bytes, int count) noexcept {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<char, 2 + 2 * kDumpWidth + 1> hex{};
  std::array<char, kDumpWidth + 1> text{};
  std::size_t end = 0;
  for (int i = 0; i < kDumpWidth; ++i) {
    const bool isThere = i < count;
    if (i % kDumpGroup == 0) hex[end++] = ' ';
    hex[end++] = isThere ? kDigits[bytes[i] >> 4] : ' ';
    hex[end++] = isThere ? kDigits[bytes[i] & 15] : ' ';
    text[static_cast<std::size_t>(i)] = isThere ? shownAs(bytes[i]) : ' ';
  }
  zal_fprintf(stderr, "%s |%s|\n", hex.data(), text.data());
}

}  // namespace

int Log_PrintMessage(int level, const char* file, int line, const char* function, const char* format, ...) noexcept {
  if (!zal::logEnabled(level)) return 0;
  va_list arguments;
  va_start(arguments, format);
  printLine({level, file, line, function}, format, arguments);
  va_end(arguments);
  return 0;
}

int zal_fprintf(FILE* stream, const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  zal_vfprintf(stream, format, arguments);
  va_end(arguments);
  return 0;
}

int zal_vfprintf(FILE* stream, const char* format, va_list arguments) noexcept {
  const KeepErrno keep;
  readEnvironmentOnce();
  if (format == nullptr) return 0;
  if (!zal::logfile::isOn() || !zal::logfile::append(format, arguments)) writeToStream(stream, format, arguments);
  if (stream != nullptr) std::fflush(stream);
  return 0;
}

void Log_HexDump(const void* data, int length) noexcept {
  if (data == nullptr) return;
  const auto* const bytes = static_cast<const unsigned char*>(data);
  for (int at = 0; at < length; at += std::min(kDumpWidth, length - at))
    dumpLine(bytes + at, std::min(kDumpWidth, length - at));
}

void ZAL_Log_SetLevel(int level) noexcept {
  zal::logLevel.store(level, std::memory_order_relaxed);
}

int ZAL_Log_GetLevel(void) noexcept {
  return zal::logLevel.load(std::memory_order_relaxed);
}

int ZAL_Log_SetDirectory(const char* directory) noexcept {
  return zal::logfile::setDirectory(directory);
}

void ZAL_Log_SetFileMaxBytes(int bytes) noexcept {
  zal::logfile::setMaxBytes(bytes);
}

void ZAL_Log_SetFileMaxFiles(int count) noexcept {
  zal::logfile::setMaxFiles(count);
}

void ZAL_Log_FileClose(const char* name) noexcept {
  zal::logfile::close(name);
}

void ZAL_Log_CheckEnv(void) noexcept {
  zal::logfile::nameAfterProcess();
  for (std::size_t i = 0; i < std::size(debugEnvNames); ++i) {
    if (debugEnvNames[i] == nullptr) continue;
    if (const char* const value = secure_getenv(debugEnvNames[i])) kSettings[i](value);
  }
  ZAL_Log_FileClose(nullptr);
}
