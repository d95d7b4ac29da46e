// How a short step is measured: many times over, so that the clock and the rounds do not matter.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Seconds that `work` takes.
template <class Work>
double secondsOf(Work work) {
  const auto start = Clock::now();
  work();
  return secondsSince(start);
}

/// The usual number of repetitions, scaled by the effort.
inline int scaled(int count, double effort) {
  return std::max(1, static_cast<int>(count * effort));
}

/// Nanoseconds that a step takes, the mean of `count`.
template <class Step>
double nanosecondsOf(int count, Step step) {
  return secondsOf([&] {
           for (int i = 0; i < count; ++i) step();
         }) *
         1e9 / count;
}

/// The median time of a step, in microseconds.
template <class Step>
double medianMicroseconds(int count, Step step) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i) times.push_back(secondsOf(step) * 1e6);
  const auto middle = times.begin() + count / 2;
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

}  // namespace bench
