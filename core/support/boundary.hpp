// The C boundary: runs a body, and turns an exception that escapes it into a log line and a failure result.
#pragma once

#include <zal/zal_log.h>

#include <exception>
#include <type_traits>
#include <utility>

namespace zal {

/// Where a guarded body stands; ZAL_HERE fills it in, so that the log names the caller and not this header.
struct Place {
  const char* module;
  int line;
  const char* function;
};

inline void logEscaped(Place at, const char* what) noexcept {
  static_cast<void>(Log_PrintMessage(ZAL_LOG_ERROR, at.module, at.line, at.function, "unexpected failure: %s\n", what));
}

/// Runs `body`; when it throws, logs and returns `onFailure`.
template <class Body>
auto guarded(Place at, std::invoke_result_t<Body> onFailure, Body&& body) noexcept -> std::invoke_result_t<Body> {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& e) {
    logEscaped(at, e.what());
  } catch (...) {
    logEscaped(at, "exception of an unknown type");
  }
  return onFailure;
}

/// The same for a body without result.
template <class Body>
requires std::is_void_v<std::invoke_result_t<Body>>
void guarded(Place at, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (const std::exception& e) {
    logEscaped(at, e.what());
  } catch (...) {
    logEscaped(at, "exception of an unknown type");
  }
}

}  // namespace zal

#define ZAL_HERE                       \
  ::zal::Place {                       \
    ZAL_LOG_MODULE, __LINE__, __func__ \
  }
