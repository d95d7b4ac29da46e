// How often which latency was seen: buckets that grow with their value, so that any number of samples fits into little
// memory and each is known to about 3 %. One thread at a time.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace zalctl {

class Histogram {
 public:
  using Microseconds = std::chrono::duration<double, std::micro>;

  void add(std::chrono::nanoseconds latency);
  [[nodiscard]] std::uint64_t count() const { return count_; }
  [[nodiscard]] Microseconds mean() const;
  [[nodiscard]] Microseconds longest() const { return longest_; }
  /// The latency that this share of the samples, from 0 to 1, does not exceed.
  [[nodiscard]] Microseconds quantile(double share) const;

  /// A range of latencies and how many samples lie in it, one for each doubling from the first to the last that is not
  /// empty.
  struct Row {
    Microseconds from;
    Microseconds to;
    std::uint64_t count;
  };
  [[nodiscard]] std::vector<Row> rows() const;

 private:
  static constexpr unsigned kSteps = 32;  // in each doubling
  static constexpr unsigned kDoublings = 40;

  std::array<std::uint64_t, std::size_t{kSteps} * kDoublings> buckets_{};
  std::uint64_t count_ = 0;
  Microseconds sum_{};
  Microseconds longest_{};
};

}  // namespace zalctl
