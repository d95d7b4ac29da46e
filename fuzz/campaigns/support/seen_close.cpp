// libuv closes descriptors by way of syscall(2), which ThreadSanitizer does not see: whatever gets the number next is
// then taken for the same file, and its opening for a race. In a program with this source they are closed by close(2).
#if defined(__SANITIZE_THREAD__)

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

extern "C" long syscall(long number, ...) noexcept {
  std::va_list list;
  va_start(list, number);
  long arguments[6];
  for (long& argument : arguments) argument = va_arg(list, long);
  va_end(list);
  if (number == SYS_close) return close(static_cast<int>(arguments[0]));
  using Function = long (*)(long, ...);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "syscall"));
  return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

#endif
