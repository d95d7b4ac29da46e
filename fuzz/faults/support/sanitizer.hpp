// What a build with AddressSanitizer adds: leaks are what cannot be reached any more, whatever their size.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace faults {

#if defined(__SANITIZE_ADDRESS__)

inline constexpr bool kHasLeakSanitizer = true;

inline bool hasUnreachableBlocks() noexcept {
  return __lsan_do_recoverable_leak_check() != 0;
}
/// What is allocated in the scope may be left behind.
class LeaksAllowed {
 public:
  LeaksAllowed() noexcept { __lsan_disable(); }
  ~LeaksAllowed() { __lsan_enable(); }
  LeaksAllowed(const LeaksAllowed&) = delete;
  LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

#else

inline constexpr bool kHasLeakSanitizer = false;

inline bool hasUnreachableBlocks() noexcept {
  return false;
}
class LeaksAllowed {
 public:
  LeaksAllowed() noexcept {}
};

#endif

}  // namespace faults
