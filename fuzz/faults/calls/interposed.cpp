#include "calls/interposed.hpp"

#include <dlfcn.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <semaphore.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

namespace faults {

namespace {

enum class Library { kNone, kOwn, kLibuv };

/// The code of one library in memory.
struct Code {
  Library owner;
  std::uintptr_t begin;
  std::uintptr_t end;
};

/// libuv's and the library's own.
struct Watched {
  std::array<Code, 2> code{};
  std::size_t used = 0;

  Watched() noexcept { dl_iterate_phdr(add, this); }

  [[nodiscard]] Library at(const void* address) const noexcept {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    for (std::size_t i = 0; i < used; ++i)
      if (place >= code[i].begin && place < code[i].end) return code[i].owner;
    return Library::kNone;
  }

 private:
  static int add(dl_phdr_info* info, std::size_t /*size*/, void* self) noexcept {
    const std::string_view name{info->dlpi_name};
    const bool isLibuv = name.find("libuv.so") != std::string_view::npos;
    if (!isLibuv && name.find("libzal-client.so") == std::string_view::npos) return 0;
    auto& watched = *static_cast<Watched*>(self);
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      const auto& segment = info->dlpi_phdr[i];
      if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0 || watched.used == watched.code.size()) continue;
      const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
      watched.code[watched.used++] = {isLibuv ? Library::kLibuv : Library::kOwn, begin, begin + segment.p_memsz};
    }
    return 0;
  }
};

// The order is that of the table below.
enum CallNumber : std::size_t {
  kEpollCreate1,
  kEpollCtl,
  kEpollWait,
  kEventfd,
  kPipe2,
  kSocket,
  kConnect,
  kBind,
  kListen,
  kAccept4,
  kSetsockopt,
  kGetsockopt,
  kRead,
  kWrite,
  kWritev,
  kVdprintf,
  kClose,
  kFcntl,
  kIoctl,
  kOpen,
  kFstat,
  kLstat,
  kRename,
  kUnlink,
  kUnlinkat,
  kOpendir,
  kPoll,
  kInotifyInit1,
  kInotifyAddWatch,
  kPthreadCreate,
  kPthreadSigmask,
  kSemClockwait,
  kClockGettime,
  kUvAccept,
  kCalls
};

constexpr std::array<int, 5> kAny = {EINTR, EAGAIN, EMFILE, ENOSPC, EIO};

constexpr std::array<Call, kCalls> kTable = {{
    {"epoll_create1", {EINTR, EMFILE, ENFILE, ENOMEM, EIO}},
    {"epoll_ctl", {EINTR, ENOMEM, ENOSPC, EPERM, EIO}},
    {"epoll_wait", {EINTR, EAGAIN, EBADF, EINVAL, EIO}},
    {"eventfd", {EINTR, EMFILE, ENFILE, ENOMEM, EIO}},
    {"pipe2", {EINTR, EMFILE, ENFILE, ENOMEM, EIO}},
    {"socket", {EINTR, EMFILE, ENOBUFS, EACCES, EIO}},
    {"connect", {EINTR, EAGAIN, ECONNREFUSED, ENOENT, EIO}},
    {"bind", {EINTR, EADDRINUSE, ENOSPC, EROFS, EIO}},
    {"listen", {EINTR, EADDRINUSE, EMFILE, ENOSPC, EIO}},
    {"accept4", {EINTR, EAGAIN, EMFILE, ECONNABORTED, EIO}},
    {"setsockopt", {EINTR, EAGAIN, ENOBUFS, ENOPROTOOPT, EIO}},
    {"getsockopt", {EINTR, EAGAIN, ENOBUFS, ENOPROTOOPT, EIO}},
    {"read", {EINTR, EAGAIN, ENOMEM, ECONNRESET, EIO}},
    {"write", {EINTR, EAGAIN, ENOSPC, EPIPE, EIO}},
    {"writev", {EINTR, EAGAIN, ENOSPC, EPIPE, EIO}},
    {"vdprintf", {EINTR, EAGAIN, ENOSPC, EROFS, EIO}},
    {"close", kAny},
    {"fcntl", kAny},
    {"ioctl", kAny},
    {"open", {EINTR, EMFILE, ENOSPC, EROFS, EIO}},
    {"fstat", kAny},
    {"lstat", {EINTR, EACCES, ENOMEM, ENOENT, EIO}},
    {"rename", {EINTR, ENOSPC, EROFS, EACCES, EIO}},
    {"unlink", {EINTR, ENOSPC, EROFS, EACCES, EIO}},
    {"unlinkat", {EINTR, ENOSPC, EROFS, EACCES, EIO}},
    {"opendir", {EINTR, EMFILE, EACCES, ENOMEM, EIO}},
    {"poll", {EINTR, EAGAIN, ENOMEM, EINVAL, EIO}},
    {"inotify_init1", {EINTR, EMFILE, ENFILE, ENOMEM, EIO}},
    {"inotify_add_watch", {EINTR, ENOSPC, EACCES, ENOMEM, EIO}},
    {"pthread_create", {EINTR, EAGAIN, EPERM, ENOMEM, EIO}},
    {"pthread_sigmask", kAny},
    {"sem_clockwait", {EINTR, EAGAIN, ETIMEDOUT, EINVAL, EIO}},
    {"clock_gettime", kAny},
    {"uv_accept", kAny},
}};

std::atomic<std::size_t> plannedCall{kCalls};
std::atomic<int> plannedError{0};
std::array<std::atomic<std::uint64_t>, kCalls> counts{};

/// libuv's clock does not fail: libuv would take the time for 0, and a loop with a timer would sleep on until something
/// else wakes it.
bool fails(CallNumber call, const void* caller) noexcept {
  if (!isArmed()) return false;
  static const Watched watched;
  const Library library = watched.at(caller);
  if (library == Library::kNone || (library == Library::kLibuv && call == kClockGettime)) return false;
  ++counts[call];
  if (call != plannedCall || !strikes(Kind::kSystemCall)) return false;
  errno = plannedError;
  return true;
}

/// The standard streams are not what fails, but where lines go then.
bool canFail(int writtenTo) noexcept {
  return writtenTo > STDERR_FILENO;
}

/// An eventfd is full only when it is readable, so that its writer need not care.
bool isFullEvent(std::size_t size) noexcept {
  return size == sizeof(std::uint64_t) && plannedError == EAGAIN;
}

template <class Function>
Function* next(const char* name) noexcept {
  auto* const function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  if (function == nullptr) std::abort();
  return function;
}

}  // namespace

std::span<const Call> calls() noexcept {
  return kTable;
}

void armCall(std::size_t call, int error, Mode mode, std::uint64_t point) noexcept {
  plannedCall = call;
  plannedError = error;
  for (auto& count : counts) count = 0;
  arm(Kind::kSystemCall, mode, point);
}

void countCalls(std::span<std::uint64_t> all) noexcept {
  for (std::size_t i = 0; i < all.size() && i < counts.size(); ++i) all[i] = counts[i];
}

}  // namespace faults

// Under names of their own, since the headers declare the functions in their own ways; the label is what counts. What
// follows the number of the call are its result, the label, the failure, its parameters and its arguments.
#define FAULTS_CALL(number, Result, label, failure, parameters, arguments)          \
  Result stand_in_##label parameters __asm__(#label);                               \
  Result stand_in_##label parameters {                                              \
    static auto* const real = faults::next<Result parameters>(#label);              \
    if (faults::fails(faults::number, __builtin_return_address(0))) return failure; \
    return real arguments;                                                          \
  }

extern "C" {

FAULTS_CALL(kEpollCreate1, int, epoll_create1, -1, (int flags), (flags))
FAULTS_CALL(kEpollCtl, int, epoll_ctl, -1, (int set, int what, int file, void* event), (set, what, file, event))
FAULTS_CALL(kEpollWait, int, epoll_wait, -1, (int set, void* events, int most, int time), (set, events, most, time))
FAULTS_CALL(kEpollWait, int, epoll_pwait, -1, (int set, void* events, int most, int time, const void* mask),
            (set, events, most, time, mask))
FAULTS_CALL(kEventfd, int, eventfd, -1, (unsigned count, int flags), (count, flags))
FAULTS_CALL(kPipe2, int, pipe2, -1, (int* files, int flags), (files, flags))
FAULTS_CALL(kSocket, int, socket, -1, (int domain, int type, int protocol), (domain, type, protocol))
FAULTS_CALL(kConnect, int, connect, -1, (int file, const void* address, socklen_t size), (file, address, size))
FAULTS_CALL(kBind, int, bind, -1, (int file, const void* address, socklen_t size), (file, address, size))
FAULTS_CALL(kListen, int, listen, -1, (int file, int backlog), (file, backlog))
FAULTS_CALL(kAccept4, int, accept4, -1, (int file, void* address, socklen_t* size, int flags),
            (file, address, size, flags))
FAULTS_CALL(kSetsockopt, int, setsockopt, -1, (int file, int level, int name, const void* value, socklen_t size),
            (file, level, name, value, size))
FAULTS_CALL(kGetsockopt, int, getsockopt, -1, (int file, int level, int name, void* value, socklen_t* size),
            (file, level, name, value, size))
FAULTS_CALL(kRead, ssize_t, read, -1, (int file, void* buffer, size_t size), (file, buffer, size))
FAULTS_CALL(kWritev, ssize_t, writev, -1, (int file, const iovec* parts, int count), (file, parts, count))
FAULTS_CALL(kFstat, int, fstat64, -1, (int file, void* status), (file, status))
FAULTS_CALL(kLstat, int, lstat64, -1, (const char* path, void* status), (path, status))
FAULTS_CALL(kRename, int, rename, -1, (const char* from, const char* to), (from, to))
FAULTS_CALL(kUnlink, int, unlink, -1, (const char* path), (path))
FAULTS_CALL(kUnlinkat, int, unlinkat, -1, (int directory, const char* path, int flags), (directory, path, flags))
FAULTS_CALL(kOpendir, void*, opendir, nullptr, (const char* path), (path))
FAULTS_CALL(kPoll, int, poll, -1, (pollfd * files, nfds_t count, int time), (files, count, time))
FAULTS_CALL(kInotifyInit1, int, inotify_init1, -1, (int flags), (flags))
FAULTS_CALL(kInotifyAddWatch, int, inotify_add_watch, -1, (int file, const char* path, std::uint32_t mask),
            (file, path, mask))
FAULTS_CALL(kPthreadCreate, int, pthread_create, errno,
            (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* data),
            (thread, attributes, start, data))
FAULTS_CALL(kPthreadSigmask, int, pthread_sigmask, errno, (int how, const sigset_t* set, sigset_t* before),
            (how, set, before))
FAULTS_CALL(kSemClockwait, int, sem_clockwait, -1, (sem_t * semaphore, clockid_t clock, const timespec* end),
            (semaphore, clock, end))
FAULTS_CALL(kClockGettime, int, clock_gettime, -1, (clockid_t clock, timespec* time), (clock, time))

// What follows has arguments that may be there or not; the register or the stack holds something in any case.
FAULTS_CALL(kFcntl, int, fcntl, -1, (int file, int command, void* argument), (file, command, argument))
FAULTS_CALL(kFcntl, int, fcntl64, -1, (int file, int command, void* argument), (file, command, argument))
FAULTS_CALL(kIoctl, int, ioctl, -1, (int file, unsigned long request, void* argument), (file, request, argument))
FAULTS_CALL(kOpen, int, open, -1, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAULTS_CALL(kOpen, int, open64, -1, (const char* path, int flags, mode_t mode), (path, flags, mode))

int stand_in_close(int file) __asm__("close");
int stand_in_close(int file) {
  static auto* const real = faults::next<int(int)>("close");
  const int result = real(file);
  return faults::fails(faults::kClose, __builtin_return_address(0)) ? -1 : result;
}

/// libuv's own, since no system call makes it fail. The stream is open all the same.
int stand_in_uv_accept(void* listener, void* stream) __asm__("uv_accept");
int stand_in_uv_accept(void* listener, void* stream) {
  static auto* const real = faults::next<int(void*, void*)>("uv_accept");
  const int result = real(listener, stream);
  return faults::fails(faults::kUvAccept, __builtin_return_address(0)) ? -errno : result;
}

ssize_t stand_in_write(int file, const void* buffer, size_t size) __asm__("write");
ssize_t stand_in_write(int file, const void* buffer, size_t size) {
  static auto* const real = faults::next<ssize_t(int, const void*, size_t)>("write");
  const bool hasFailed = faults::canFail(file) && faults::fails(faults::kWrite, __builtin_return_address(0));
  const ssize_t count = !hasFailed || faults::isFullEvent(size) ? real(file, buffer, size) : -1;
  if (!hasFailed) return count;
  errno = faults::plannedError;
  return -1;
}

int stand_in_vdprintf(int file, const char* format, std::va_list arguments) __asm__("vdprintf");
int stand_in_vdprintf(int file, const char* format, std::va_list arguments) {
  static auto* const real = faults::next<int(int, const char*, std::va_list)>("vdprintf");
  if (faults::canFail(file) && faults::fails(faults::kVdprintf, __builtin_return_address(0))) return -1;
  return real(file, format, arguments);
}

}  // extern "C"
