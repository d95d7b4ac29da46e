// The hook record and its defaults: standard error, the C library's memory, and the end of the process.
#include "base/zal_tpl/hook.hpp"

#include <cstdarg>
#include <cstdio>

namespace {

ZAL_PRINTF_LIKE(1, 2) int reportToStandardError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  static_cast<void>(std::vfprintf(stderr, format, arguments));
  va_end(arguments);
  return 0;
}

/// What the program has printed and not yet written, unless another thread is printing just now.
void flushStandardOutput() noexcept {
  if (ftrylockfile(stdout) != 0) return;
  static_cast<void>(std::fflush(stdout));
  funlockfile(stdout);
}

/// Not by exit(): its handlers take libuv's pool down, which waits for the jobs that run, or aborts when one of them is
/// the caller.
ZAL_PRINTF_LIKE(1, 2) void endProcess(const char* format, ...) {
  char text[100];  // longer messages are cut
  va_list arguments;
  va_start(arguments, format);
  static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments));
  va_end(arguments);
  static_cast<void>(tpl_hook.report_fn("%s", text));
  flushStandardOutput();
  std::_Exit(-1);
}

}  // namespace

tpl_hook_record tpl_hook = {reportToStandardError, std::malloc, std::realloc, std::free, endProcess, 0};
