#include "tests/support/wait.hpp"

#include <thread>

namespace zal::test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds{1});
  }
  return true;
}

}  // namespace zal::test
