// Where a dump goes: a mapped file, a descriptor, the caller's buffer or a new block.
#include "base/zal_tpl/rooms.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zal::tpl {
namespace {

/// Extends a file and has its blocks reserved: a full disk is an error here, and would be a fatal signal when the
/// mapping is written.
[[nodiscard]] bool extendFile(int descriptor, std::uint32_t size) noexcept {
  const auto length = static_cast<off_t>(size);
  if (ftruncate(descriptor, length) == -1) return false;
  do {
    errno = posix_fallocate(descriptor, 0, length);
  } while (errno == EINTR);
  return errno == 0;
}

void unmapTarget(int descriptor, void* address, std::uint32_t size) noexcept {
  if (munmap(address, size) == -1) tpl_hook.report_fn("munmap failed on fd %d: %s\n", descriptor, systemError());
}

[[nodiscard]] bool writeMapped(tpl_map_node& map, std::uint32_t size, const char* path, int descriptor) noexcept {
  void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (address == MAP_FAILED) {
    tpl_hook.report_fn("Failed to mmap %s: %s\n", path, systemError());
    return false;
  }
  const bool extended = extendFile(descriptor, size);
  if (extended) {
    writeImage(map, size, static_cast<char*>(address));
    if (msync(address, size, MS_SYNC) == -1) {
      tpl_hook.report_fn("msync failed on fd %d: %s\n", descriptor, systemError());
    }
  } else {
    tpl_hook.report_fn("ftruncate failed: %s\n", systemError());
  }
  unmapTarget(descriptor, address, size);
  return extended;
}

/// Takes back what a failed dump left in a regular file, so that the dump can be tried again in the same place.
void rewindFile(int descriptor, const struct stat& before, std::size_t written) noexcept {
  if (!S_ISREG(before.st_mode) || written == 0) return;
  if (ftruncate(descriptor, before.st_size) == -1 || lseek(descriptor, -static_cast<off_t>(written), SEEK_CUR) == -1) {
    tpl_hook.report_fn("can't rewind: %s\n", systemError());
  }
}

[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes) noexcept {
  struct stat before {};
  static_cast<void>(fstat(descriptor, &before));  // a bad descriptor shows at the write
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
      ZAL_INVARIANT(written <= bytes.size());
    } else if (errno == EAGAIN) {
      awaitReady(descriptor, POLLOUT);
    } else if (errno != EINTR) {
      tpl_hook.report_fn("error writing to fd %d: %s\n", descriptor, systemError());
      rewindFile(descriptor, before, written);
      return false;
    }
  }
  return true;
}

}  // namespace

int dumpToFile(tpl_map_node& map, std::uint32_t size, const char* path) noexcept {
  const int descriptor = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0664);
  if (descriptor == -1) {
    tpl_hook.report_fn("Couldn't open file %s: %s\n", path, systemError());
    return -1;
  }
  const bool written = writeMapped(map, size, path, descriptor);
  close(descriptor);
  return written ? 0 : -1;
}

int dumpToDescriptor(tpl_map_node& map, std::uint32_t size, int descriptor) noexcept {
  const HookPtr<char> image = dumpToMemory(map, size);
  return writeAll(descriptor, {image.get(), size}) ? 0 : -1;
}

int dumpToBuffer(tpl_map_node& map, std::uint32_t size, void* buffer, std::size_t capacity) noexcept {
  if (capacity < size) {
    tpl_hook.report_fn("tpl_dump: buffer too small, need %d bytes\n", static_cast<int>(size));
    return -1;
  }
  writeImage(map, size, static_cast<char*>(buffer));
  return 0;
}

HookPtr<char> dumpToMemory(tpl_map_node& map, std::uint32_t size) noexcept {
  HookPtr<char> image{allocate(size)};
  writeImage(map, size, image.get());
  return image;
}

}  // namespace zal::tpl
