// Waiting for a condition instead of for time.
#pragma once

#include <chrono>
#include <functional>

namespace zal::test {

/// Looks at `condition` until it holds (true) or the deadline passes (false). The deadline is generous: it only ends
/// tests that would otherwise hang.
bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds deadline = std::chrono::seconds{60});

}  // namespace zal::test
