// What holds wherever the code is right, whatever a caller or a peer does. Test builds (the CMake option
// ZAL_INVARIANTS, which the presets for tests set) stop where it does not; other builds do not even evaluate it. Any
// thread.
#pragma once

#if defined(ZAL_INVARIANTS)

#include <cstdio>
#include <cstdlib>

namespace zal {

[[noreturn]] inline void reportBroken(const char* invariant, const char* file, int line) noexcept {
  std::fprintf(stderr, "%s:%d: broken invariant: %s\n", file, line, invariant);
  std::abort();
}

}  // namespace zal

#define ZAL_INVARIANT(...) ((__VA_ARGS__) ? void() : ::zal::reportBroken(#__VA_ARGS__, __FILE__, __LINE__))

#else

#define ZAL_INVARIANT(...) static_cast<void>(sizeof((__VA_ARGS__) ? 1 : 0))

#endif
