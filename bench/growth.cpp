// What the tables of growth share, and their order.
#include "growth/growth.hpp"

#include <malloc.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "suites.hpp"
#include "support/timing.hpp"

namespace bench {

std::vector<int> sizes(int fewest, int most, const Settings& settings) {
  std::vector<int> all;
  for (int size = fewest; size < most; size *= 10) all.push_back(size);
  all.push_back(most);
  while (all.size() > 2 && all.back() > most * settings.effort) all.pop_back();
  return all;
}

double heapBytes() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

void awaitCount(const std::atomic<int>& counter, int count) {
  constexpr double kPatienceSeconds = 120;
  const auto start = Clock::now();
  while (counter.load() < count) {
    if (secondsSince(start) > kPatienceSeconds) throw std::runtime_error{"what was asked for has not happened"};
    std::this_thread::sleep_for(std::chrono::microseconds{20});
  }
}

void measureGrowth(const Settings& settings, Report& report) {
  measureServiceGrowth(settings, report);
  measureGatewayGrowth(settings, report);
  measureConnectionGrowth(settings, report);
  measureCommandGrowth(settings, report);
}

}  // namespace bench
