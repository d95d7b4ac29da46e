// Waiting for what other threads bring about.
#pragma once

#include <unistd.h>

#include <chrono>

#include "support/fault.hpp"

namespace faults {

/// Waits until `condition` holds, a long time; false when it does not come true.
template <class Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds time = std::chrono::seconds{10}) {
  constexpr useconds_t kMoment = 200;
  const auto end = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    usleep(kMoment);
  }
  return true;
}

/// The same, but what has met a fault may never come true: then it is given up after a moment.
template <class Condition>
bool waitUnlessStruck(Condition condition) {
  constexpr std::chrono::milliseconds kGrace{30};
  const bool hasCome = waitUntil([&] { return condition() || strikeCount() > 0; });
  return strikeCount() > 0 ? waitUntil(condition, kGrace) : hasCome;
}

}  // namespace faults
