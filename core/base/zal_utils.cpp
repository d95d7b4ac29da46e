// Files read whole, the temporary directory, the date string and small helpers for lines, tags and interfaces. Every
// function is for any thread. Bounded strings, time and sysfs are in zal_osl.cpp.
#include <zal/zal_runtime.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>

#include "support/descriptor.hpp"
#include "support/local_time.hpp"
#include "support/lock.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

namespace {

constexpr std::uint64_t kStep512MiB = std::uint64_t{1} << 29;

/// `size` zero bytes of malloc's.
zal::CPtr<char> zeroed(std::size_t size) noexcept {
  return zal::CPtr<char>{static_cast<char*>(std::calloc(size, 1))};
}

/// The size of an open file, when it is at least 1 and a buffer of it with a terminator can exist on this machine.
std::optional<std::size_t> bufferableSize(const zal::Descriptor& file) noexcept {
  struct stat64 status {};
  if (fstat64(file.get(), &status) != 0 || status.st_size <= 0) return std::nullopt;
  if (static_cast<std::uint64_t>(status.st_size) >= PTRDIFF_MAX) return std::nullopt;
  return static_cast<std::size_t>(status.st_size);
}

/// What stat says of a path; empty when there is none. A failure is logged as `function`. The 64-bit call knows files
/// that outgrew a 32-bit off_t.
std::optional<struct stat64> statusOf(const char* path, const char* function) noexcept {
  if (path == nullptr) return std::nullopt;
  struct stat64 status {};
  if (stat64(path, &status) == 0) return status;
  ZAL_LOG_AS(ZAL_LOG_ERROR, function, "<!-- ERROR getting stats for file (%s) -->\n", path);
  return std::nullopt;
}

bool isDirectory(const char* path) noexcept {
  struct stat64 status {};
  return stat64(path, &status) == 0 && S_ISDIR(status.st_mode);
}

using TempDir = std::array<char, 4096>;

TempDir findTempDir() noexcept {
  TempDir found{};
  const char* const wish = secure_getenv("TMPDIR");
  if (wish != nullptr && isDirectory(wish)) {
    // A path that stat accepts is shorter than PATH_MAX, so it fits.
    std::size_t length = std::min(zalstrlcpy(found.data(), wish, found.size()), found.size() - 1);
    while (length > 1 && found[length - 1] == '/') found[--length] = '\0';
  } else {
    zalstrlcpy(found.data(), isDirectory("/tmp") ? "/tmp" : "/", found.size());
  }
  return found;
}

/// The IPv4 address of an interface.
std::optional<in_addr> addressOf(const char* interface) noexcept {
  const zal::Descriptor asked{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  if (!asked.isOpen()) return std::nullopt;
  ifreq request{};
  request.ifr_addr.sa_family = AF_INET;
  zalstrlcpy(request.ifr_name, interface, sizeof request.ifr_name);
  if (ioctl(asked.get(), SIOCGIFADDR, &request) != 0) return std::nullopt;
  sockaddr_in address{};
  std::memcpy(&address, &request.ifr_addr, sizeof address);
  return address.sin_addr;
}

constinit zal::StaticMutex dateMutex;
constinit std::array<char, 64> dateText ZAL_GUARDED_BY(dateMutex) = {};

}  // namespace

const char* ZAL_GetDateString(void) noexcept {
  const auto now = zal::localTime();
  const zal::LockGuard hold{dateMutex};
  dateText = {};
  if (now) std::strftime(dateText.data(), dateText.size(), "%Y%m%d-%H%M%S", &*now);
  return dateText.data();
}

void* ZAL_GetFileContentBinary(const char* path, size_t* count) noexcept {
  if (path == nullptr) return nullptr;
  // Without O_NONBLOCK a FIFO that nobody writes would hold the caller; files are read the same either way.
  const zal::Descriptor file{open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE)};
  if (!file.isOpen()) return nullptr;
  const auto size = bufferableSize(file);
  if (!size) return nullptr;
  zal::CPtr<char> content = zeroed(*size + (count == nullptr ? 1 : 0));
  if (content == nullptr) return nullptr;
  const ssize_t result = file.readOnce(content.get(), *size);
  if (result < 1) {
    ZAL_LOG(ZAL_LOG_ERROR, "read(%s) returned %ld \n", path, static_cast<long>(result));
    return nullptr;
  }
  if (static_cast<std::size_t>(result) != *size)
    ZAL_LOG(ZAL_LOG_WARNING, "read(%s) returned %ld bytes, but fstat says it should be %ld \n", path,
            static_cast<long>(result), static_cast<long>(*size));
  if (count != nullptr) *count = static_cast<std::size_t>(result);
  return content.release();
}

char* ZAL_GetFileContent(const char* path) noexcept {
  return static_cast<char*>(ZAL_GetFileContentBinary(path, nullptr));
}

char* ZAL_GetFileContentProc(const char* path, size_t size) noexcept {
  if (path == nullptr || size >= PTRDIFF_MAX) return nullptr;
  zal::CPtr<char> content = zeroed(size + 1);
  if (content == nullptr) return nullptr;
  const zal::Descriptor file{open(path, O_RDONLY | O_CLOEXEC | O_LARGEFILE)};
  if (!file.isOpen()) return nullptr;
  if (file.readUpTo(content.get(), size > 0 ? size - 1 : 0) == 0)
    ZAL_LOG(ZAL_LOG_ERROR, "%s - fread(%s) returned 0 bytes \n", __func__, path);
  return content.release();
}

int ZAL_IsRegularFile(const char* path) noexcept {
  const auto status = statusOf(path, __func__);
  return status && S_ISREG(status->st_mode) ? 1 : 0;
}

uint32_t ZAL_GetFileSize(const char* path) noexcept {
  const auto status = statusOf(path, __func__);
  return status ? static_cast<uint32_t>(status->st_size) : 0;
}

const char* ZAL_GetTempDir(void) noexcept {
  static const TempDir decided = findTempDir();
  return decided.data();
}

void ZAL_PrependTempDir(char* destination, size_t size, const char* name) noexcept {
  if (destination == nullptr) return;
  std::snprintf(destination, size, "%s/%s", ZAL_GetTempDir(), name);
}

void ZAL_TrimLine(char* line) noexcept {
  if (line == nullptr || *line == '\0') return;
  char* const last = line + std::strlen(line) - 1;
  if (*last == '\n') *last = '\0';
}

int ZAL_CheckForSpecialTag(const char* tag) noexcept {
  constexpr const char* kTags[] = {"include", "exclude", "range"};
  if (tag == nullptr) return 0;
  return std::any_of(std::begin(kTags), std::end(kTags),
                     [&](const char* special) { return !std::strcmp(tag, special); });
}

uint64_t ZAL_RoundUp512(uint64_t bytes) noexcept {
  return (bytes & ~(kStep512MiB - 1)) + kStep512MiB;
}

int ZAL_GetIpFromIfName(const char* name, char* buffer, size_t size) noexcept {
  if (name == nullptr || *name == '\0') return 0;
  const auto address = addressOf(name);
  if (!address || buffer == nullptr) return 0;
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &*address, text.data(), text.size());
  if (std::strlen(text.data()) < size) zalstrlcpy(buffer, text.data(), size);
  return 0;
}
