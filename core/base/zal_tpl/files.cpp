// Files and descriptors as images come from them: a file that is mapped for reading, and the wait for a descriptor.
#include "base/zal_tpl/rooms.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zal::tpl {

bool mapFile(const char* path, tpl_image_record& image) noexcept {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor == -1) {
    tpl_hook.report_fn("Couldn't open file %s: %s\n", path, systemError());
    return false;
  }
  struct stat status {};
  if (fstat(descriptor, &status) == -1) {
    tpl_hook.report_fn("Couldn't stat file %s: %s\n", path, systemError());
    close(descriptor);
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address == MAP_FAILED) {
    tpl_hook.report_fn("Failed to mmap %s: %s\n", path, systemError());
    close(descriptor);
    return false;
  }
  image = {.descriptor = descriptor, .address = static_cast<char*>(address), .size = size};
  return true;
}

void unmapFile(tpl_image_record& image) noexcept {
  ZAL_INVARIANT(image.descriptor >= 0 && image.address != nullptr);
  if (munmap(image.address, image.size) == -1) tpl_hook.report_fn("Failed to munmap: %s\n", systemError());
  close(image.descriptor);
  image = {};
}

void awaitReady(int descriptor, short events) noexcept {
  pollfd watched = {.fd = descriptor, .events = events, .revents = 0};
  static_cast<void>(poll(&watched, 1, -1));  // an error shows at the next read or write
}

const char* systemError() noexcept {
  return std::strerror(errno);
}

}  // namespace zal::tpl
