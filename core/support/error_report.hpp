// The error report of the JSON side, which goes to standard error and not to the log.
#pragma once

#include <cstdio>

namespace zal {

/// Reports `text` as coming from a line of a module. Any thread.
inline void reportError(const char* module, int line, const char* text, int code = -1) noexcept {
  std::fprintf(stderr, "ZAL ERROR: %s - code:%d at %s: %d\n", text, code, module, line);
}

}  // namespace zal
