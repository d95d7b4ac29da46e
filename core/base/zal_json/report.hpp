// How the document helpers say that something went wrong: on standard error, never in the log.
#pragma once

#include <exception>

#include "support/error_report.hpp"

namespace zal::json {

/// Reports as the line that calls it.
inline void report(const char* text, int code = -1, int line = __builtin_LINE()) noexcept {
  reportError(ZAL_LOG_MODULE, line, text, code);
}

/// Runs a body that walks through a document; reports and gives `onFailure` when memory runs out in it.
template <class Result, class Body>
Result walking(Result onFailure, Body body) noexcept {
  try {
    return body();
  } catch (const std::exception&) {
    report("not enough memory to walk the document");
    return onFailure;
  }
}

/// The same for a body without result.
template <class Body>
void walking(Body body) noexcept {
  walking(false, [&] {
    body();
    return true;
  });
}

}  // namespace zal::json
