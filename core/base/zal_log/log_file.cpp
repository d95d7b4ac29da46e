// The state and the work behind log_file.hpp. Working buffers are on the stack, so nothing here fails for want of
// memory except opendir, and then no old file is removed. Nothing here logs.
#include "base/zal_log/log_file.hpp"

#include <zal/zal_runtime.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "base/zal_log/write_formatted.hpp"
#include "support/descriptor.hpp"
#include "support/directory.hpp"
#include "support/local_time.hpp"
#include "support/lock.hpp"

namespace zal::logfile {
namespace {

constexpr std::size_t kPathSize = 256;
constexpr std::size_t kLongestDirectory = 62;
constexpr double kGigabyte = 1073741824.0;
constexpr char kExtension[] = ".log";

using Path = std::array<char, kPathSize>;
using DirectoryPath = std::array<char, 64>;

constinit std::atomic<bool> fileLoggingOn{false};

constinit StaticMutex mutex;
constinit int maxBytes ZAL_GUARDED_BY(mutex) = 1000000;
constinit int maxFiles ZAL_GUARDED_BY(mutex) = 2;
constinit DirectoryPath logDirectory ZAL_GUARDED_BY(mutex) = {};
constinit std::array<char, 32> processName ZAL_GUARDED_BY(mutex) = {};
/// The current log file; empty means that the next write builds it anew.
constinit Path g_debugFilePath ZAL_GUARDED_BY(mutex) = {};

template <std::size_t N>
bool isEmpty(const std::array<char, N>& text) noexcept {
  return text[0] == '\0';
}

/// "<directory>/<name>.log" as far as it fits.
Path pathOf(const DirectoryPath& directory, const char* name) noexcept {
  Path path{};
  zalstrlcpy(path.data(), directory.data(), path.size());
  const std::size_t length = std::strlen(path.data());
  if (length > 0 && path[length - 1] != '/') zalstrlcat(path.data(), "/", path.size());
  zalstrlcat(path.data(), name, path.size());
  zalstrlcat(path.data(), kExtension, path.size());
  return path;
}

void readProcessNameLocked() noexcept ZAL_REQUIRES(mutex) {
  std::array<char, 32> source{};
  std::snprintf(source.data(), source.size(), "/proc/%d/comm", static_cast<int>(getpid()));
  processName = {};
  const Descriptor comm{open(source.data(), O_RDONLY | O_CLOEXEC)};
  if (comm.isOpen()) static_cast<void>(comm.readUpTo(processName.data(), processName.size() - 1));
  ZAL_TrimLine(processName.data());
  if (isEmpty(processName)) zalstrlcpy(processName.data(), program_invocation_short_name, processName.size());
}

/// The process's name, which is needed before the environment is read when a program closes a file or moves the
/// directory before its first line.
const char* processNameLocked() noexcept ZAL_REQUIRES(mutex) {
  if (isEmpty(processName)) readProcessNameLocked();
  return processName.data();
}

/// Size of the current log file, or -1 when there is none. The 64-bit call sees files that outgrew a 32-bit off_t.
std::int64_t sizeLocked() noexcept ZAL_REQUIRES(mutex) {
  struct stat64 status {};
  return lstat64(g_debugFilePath.data(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

/// Whether `name` is a rotated file of the log file `log`. "a.log.b.log", and what it was rotated to, are those of
/// another process, named "a.log.b".
bool isRotatedFrom(std::string_view log, std::string_view name) noexcept {
  if (!name.starts_with(log)) return false;
  const std::string_view suffix = name.substr(log.size());
  return suffix.starts_with('.') && !suffix.ends_with(kExtension) && suffix.find(".log.") == std::string_view::npos;
}

/// Makes room for one more rotated file. Their stamps sort in time order, so the first by name is the oldest.
void removeOldestLocked() noexcept ZAL_REQUIRES(mutex) {
  Path parent = g_debugFilePath;
  char* const slash = std::strrchr(parent.data(), '/');
  *slash = '\0';
  const Directory directory{parent.data()};
  std::array<char, NAME_MAX + 1> oldest{};
  int count = 0;
  while (const dirent64* const entry = directory.next()) {
    if (entry->d_type == DT_DIR || !isRotatedFrom(slash + 1, entry->d_name)) continue;
    if (count++ == 0 || std::strcmp(entry->d_name, oldest.data()) < 0)
      zalstrlcpy(oldest.data(), entry->d_name, oldest.size());
  }
  if (count >= maxFiles) static_cast<void>(unlinkat(directory.descriptor(), oldest.data(), 0));
}

/// Rotates the current log file if it is larger. The size is that of the file that has the name now: another process
/// of the same name may have rotated the one that was written.
void rotateAboveLocked(std::int64_t bytes) noexcept ZAL_REQUIRES(mutex) {
  if (sizeLocked() <= bytes) return;
  const auto now = localTime();
  if (!now) return;
  removeOldestLocked();
  std::array<char, 326> rotated{};
  std::snprintf(rotated.data(), rotated.size(), "%s.%04d%02d%02d-%02d:%02d:%02d", g_debugFilePath.data(),
                now->tm_year + 1900, now->tm_mon + 1, now->tm_mday, now->tm_hour, now->tm_min, now->tm_sec);
  static_cast<void>(std::rename(g_debugFilePath.data(), rotated.data()));  // the file then grows on until it succeeds
}

void closeLocked(const char* name) noexcept ZAL_REQUIRES(mutex) {
  if ((name != nullptr || isEmpty(g_debugFilePath)) && !isEmpty(logDirectory))
    g_debugFilePath = pathOf(logDirectory, name != nullptr ? name : processNameLocked());
  if (isEmpty(g_debugFilePath)) return;
  rotateAboveLocked(name != nullptr ? 0 : maxBytes);
  if (name != nullptr) g_debugFilePath = {};
}

/// A log file is a regular file in its own place: a planted link could lead anywhere, and opening or writing a FIFO
/// would hold every thread that logs.
Descriptor openForAppending(const char* path) noexcept {
  constexpr mode_t kLikeFopen = 0666;
  constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_LARGEFILE;
  Descriptor file{open(path, kAppend | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, kLikeFopen)};
  struct stat64 status {};
  const bool isRegular = file.isOpen() && fstat64(file.get(), &status) == 0 && S_ISREG(status.st_mode);
  return isRegular ? std::move(file) : Descriptor{-1};
}

/// Opens the current log file.
Descriptor openLocked() noexcept ZAL_REQUIRES(mutex) {
  if (isEmpty(g_debugFilePath) && !isEmpty(logDirectory)) g_debugFilePath = pathOf(logDirectory, processNameLocked());
  if (isEmpty(g_debugFilePath)) {
    std::fputs("zal g_debugFilePath is empty\n", stdout);
    std::fflush(stdout);
    return Descriptor{-1};
  }
  return openForAppending(g_debugFilePath.data());
}

/// The current file moves along when the directory changes.
void changeDirectoryLocked(const DirectoryPath& directory) noexcept ZAL_REQUIRES(mutex) {
  const Path before = pathOf(logDirectory, processNameLocked());
  const Path after = pathOf(directory, processNameLocked());
  logDirectory = directory;
  if (before != after) static_cast<void>(std::rename(before.data(), after.data()));  // else the file starts anew
}

void warnAboutSpace(int bytes, int files) noexcept {
  if (static_cast<double>(bytes) * static_cast<double>(files) <= kGigabyte) return;
  dprintf(STDERR_FILENO,
          "WARNING: the combination of debug options bytes (%ld) and file count (%lu) exceeds a gigabyte\n",
          static_cast<long>(bytes), static_cast<unsigned long>(files));
}

}  // namespace

bool isOn() noexcept {
  return fileLoggingOn.load(std::memory_order_acquire);
}

bool append(const char* format, std::va_list arguments) noexcept {
  const LockGuard hold{mutex};
  std::int64_t end = 0;
  {
    const Descriptor file = openLocked();
    if (!file.isOpen() || !writeFormatted(file.get(), format, arguments)) return false;
    end = lseek64(file.get(), 0, SEEK_CUR);  // of the text, and so of the file unless others have written since
  }
  if (end > maxBytes) rotateAboveLocked(maxBytes);
  return true;
}

void nameAfterProcess() noexcept {
  const LockGuard hold{mutex};
  readProcessNameLocked();
}

int setDirectory(const char* directory) noexcept {
  if (directory == nullptr || *directory == '\0') return -1;
  const std::size_t length = strnlen(directory, kLongestDirectory + 1);
  if (length > kLongestDirectory) return 0;
  DirectoryPath copy{};
  zalstrlcpy(copy.data(), directory, copy.size());
  if (copy[length - 1] == '/') copy[length - 1] = '\0';
  if (!Directory{copy.data()}.isOpen()) {
    std::printf("Could not open dir (%s)\n", copy.data());
    std::fflush(stdout);
    return -1;
  }

  const LockGuard hold{mutex};
  if (!isOn()) {
    logDirectory = copy;
  } else if (copy != logDirectory) {
    changeDirectoryLocked(copy);
  }
  g_debugFilePath = {};
  fileLoggingOn.store(true, std::memory_order_release);
  return 0;
}

void setMaxBytes(int bytes) noexcept {
  if (bytes < 1 || bytes == std::numeric_limits<int>::max()) return;
  int files = 0;
  {
    const LockGuard hold{mutex};
    maxBytes = bytes;
    files = maxFiles;
  }
  warnAboutSpace(bytes, files);
}

void setMaxFiles(int count) noexcept {
  if (count < 1) return;
  int bytes = 0;
  {
    const LockGuard hold{mutex};
    maxFiles = count;
    bytes = maxBytes;
  }
  warnAboutSpace(bytes, count);
}

void close(const char* name) noexcept {
  const LockGuard hold{mutex};
  closeLocked(name);
}

}  // namespace zal::logfile
