// What the library asks of the host: bounded strings, the clock, sleep, system names, random bytes and sysfs
// attributes. Every function is for any thread. Whole files and host lookups are in zal_utils.cpp.
#include <zal/zal_runtime.h>

#include <fcntl.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "support/descriptor.hpp"
#include "support/log.hpp"

namespace {

struct FileClose {
  void operator()(FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileClose>;

/// Opens "<directory>/<attribute>". A path that does not fit is not opened: cut short, it would name another file.
FilePtr openAttribute(const char* directory, const char* attribute, const char* mode) noexcept {
  if (directory == nullptr || attribute == nullptr) return nullptr;
  std::array<char, 256> path{};
  const int length = std::snprintf(path.data(), path.size(), "%s/%s", directory, attribute);
  if (length < 0 || static_cast<std::size_t>(length) >= path.size()) return nullptr;
  return FilePtr{std::fopen(path.data(), mode)};
}

/// The wall clock; empty, and logged as `function`, when it cannot be read.
std::optional<timeval> timeOfDay(const char* function) noexcept {
  timeval now{};
  const int result = gettimeofday(&now, nullptr);
  if (result == 0) return now;
  ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Failure gettimeofday %d", result);
  return std::nullopt;
}

}  // namespace

size_t zalstrlcpy(char* destination, const char* source, size_t size) noexcept {
  const size_t length = std::strlen(source);
  if (size > 0) {
    const size_t copied = std::min(length, size - 1);
    std::memcpy(destination, source, copied);
    destination[copied] = '\0';
  }
  return length;
}

size_t zalstrlcat(char* destination, const char* source, size_t size) noexcept {
  const size_t used = strnlen(destination, size);
  return used + zalstrlcpy(destination + used, source, size - used);
}

double ZAL_GetTimestamp(void) noexcept {
  const auto now = timeOfDay(__func__);
  return now ? timevalToDouble(*now) : 0.0;
}

int64_t ZAL_GetUnsignedTimestamp(void) noexcept {
  const auto now = timeOfDay(__func__);
  return now ? now->tv_sec : 0;
}

double timevalToDouble(struct timeval time) noexcept {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1000000.0;
}

void ZAL_Sleep(unsigned int milliseconds) noexcept {
  uv_sleep(milliseconds);
}

int ZAL_Uname(uv_utsname_t* name) noexcept {
  return uv_os_uname(name);
}

void ZAL_ReadRandom(void* buffer, int length) noexcept {
  if (buffer == nullptr || length < 1) return;
  const zal::Descriptor source{open("/dev/urandom", O_RDONLY | O_CLOEXEC)};
  if (source.isOpen()) static_cast<void>(source.readUpTo(buffer, static_cast<std::size_t>(length)));
}

int sysfs_set(const char* directory, const char* attribute, int value) noexcept {
  const FilePtr file = openAttribute(directory, attribute, "we");
  if (file == nullptr) return -1;
  std::fprintf(file.get(), "%d", value);
  return 0;
}

int sysfs_get(const char* directory, const char* attribute, uint32_t* value) noexcept {
  if (value == nullptr) return -1;
  *value = 0;
  const FilePtr file = openAttribute(directory, attribute, "re");
  if (file == nullptr) return -1;
  unsigned int number = 0;
  if (std::fscanf(file.get(), "%u", &number) == 1) *value = number;
  return 0;
}
