// Waiting for a condition instead of for time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace zal::test {

/// Looks at `condition` until it holds (true) or a minute has passed (false): that only ends tests which would
/// otherwise hang.
inline bool waitUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes{1};
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds{1});
  }
  return true;
}

}  // namespace zal::test
