// How the library's own code logs: a filtered line costs one comparison and evaluates none of its arguments.
// The build defines ZAL_LOG_MODULE for each module, so that a line names the module whatever file it stands in.
#pragma once

#include <zal/zal_log.h>

#include <atomic>

namespace zal {

/// The process-wide threshold; written by ZAL_Log_SetLevel, defined by the logging module.
extern std::atomic<int> logLevel;

/// The one filter rule, shared by the macro and by Log_PrintMessage. Any thread.
inline bool logEnabled(int level) noexcept {
  return level <= ZAL_LOG_ERROR && level >= logLevel.load(std::memory_order_relaxed);
}

}  // namespace zal

/// Logs as the function it stands in.
#define ZAL_LOG(level, ...) ZAL_LOG_AS(level, __func__, __VA_ARGS__)

/// Logs as another function: for lambdas and inner functions that speak for an exported one.
#define ZAL_LOG_AS(level, function, ...)                                                                \
  do {                                                                                                  \
    if (const int zalLevel = (level); ::zal::logEnabled(zalLevel))                                      \
      static_cast<void>(Log_PrintMessage(zalLevel, ZAL_LOG_MODULE, __LINE__, (function), __VA_ARGS__)); \
  } while (false)
