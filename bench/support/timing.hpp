// How a short step is measured: many times over, so that the clock and the rounds do not matter.
#pragma once

#include <algorithm>
#include <chrono>

namespace bench {

/// Seconds that `work` takes.
template <class Work>
double secondsOf(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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

}  // namespace bench
