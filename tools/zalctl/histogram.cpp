#include "histogram.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

namespace zalctl {
namespace {

// A value of 64 ns and more lies in doubling d, from 32 << d to 64 << d, which has 32 steps; what is less in the first.
constexpr unsigned kLowBits = 5;

}  // namespace

void Histogram::add(std::chrono::nanoseconds latency) {
  const auto value = static_cast<std::uint64_t>(std::max<std::int64_t>(latency.count(), 0)) | kSteps;
  const auto doubling = static_cast<unsigned>(std::bit_width(value)) - kLowBits - 1;
  const auto step = static_cast<std::size_t>(value >> doubling) - kSteps;
  ++buckets_.at(std::min(std::size_t{doubling} * kSteps + step, buckets_.size() - 1));
  ++count_;
  sum_ += latency;
  longest_ = std::max<Microseconds>(longest_, latency);
}

Histogram::Microseconds Histogram::mean() const {
  return count_ == 0 ? sum_ : sum_ / static_cast<double>(count_);
}

Histogram::Microseconds Histogram::quantile(double share) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < buckets_.size(); ++i) {
    seen += buckets_[i];
    if (seen == 0 || seen < wanted) continue;
    const std::uint64_t end = std::uint64_t{kSteps + i % kSteps + 1} << (i / kSteps);
    return std::min<Microseconds>(std::chrono::nanoseconds{end}, longest_);
  }
  return longest_;
}

std::vector<Histogram::Row> Histogram::rows() const {
  std::vector<Row> rows;
  for (unsigned doubling = 0; doubling < kDoublings; ++doubling) {
    const auto* first = buckets_.data() + std::size_t{doubling} * kSteps;
    const std::uint64_t count = std::accumulate(first, first + kSteps, std::uint64_t{0});
    const std::chrono::nanoseconds from{std::uint64_t{kSteps} << doubling};
    if (count != 0 || !rows.empty()) rows.push_back({from, 2 * from, count});
  }
  while (!rows.empty() && rows.back().count == 0) rows.pop_back();
  return rows;
}

}  // namespace zalctl
