// What the library asks of the host: bounded strings, the clock, sleep, system names, random bytes and sysfs
// attributes. Every function is for any thread. Uptime and memory have a room of their own, zal_osl/memory_uptime.cpp;
// whole files and host lookups are in zal_utils.cpp.
#include <zal/zal_runtime.h>

#include <fcntl.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "support/descriptor.hpp"
#include "support/log.hpp"

namespace {

/// Opens "<directory>/<attribute>". A path that does not fit is not opened: cut short, it would name another file.
zal::Descriptor openAttribute(const char* directory, const char* attribute, int flags) noexcept {
  constexpr mode_t kLikeFopen = 0666;
  std::array<char, 256> path{};
  const int length = std::snprintf(path.data(), path.size(), "%s/%s", directory, attribute);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < path.size();
  return zal::Descriptor{fits ? open(path.data(), flags | O_CLOEXEC, kLikeFopen) : -1};
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
  const zal::Descriptor file = openAttribute(directory, attribute, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file.isOpen()) return -1;
  dprintf(file.get(), "%d", value);  // one write, as sysfs demands
  return 0;
}

int sysfs_get(const char* directory, const char* attribute, uint32_t* value) noexcept {
  *value = 0;
  const zal::Descriptor file = openAttribute(directory, attribute, O_RDONLY);
  if (!file.isOpen()) return -1;
  std::array<char, 64> text{};
  static_cast<void>(file.readUpTo(text.data(), text.size() - 1));
  *value = static_cast<uint32_t>(std::min<unsigned long long>(std::strtoull(text.data(), nullptr, 10), UINT32_MAX));
  return 0;
}
