// Everything that a campaign decides by chance comes from one seed.
#pragma once

#include <cstddef>
#include <random>
#include <string>

namespace zal::campaign {

class Random {
 public:
  explicit Random(unsigned seed) : engine_{seed} {}

  /// From 0 to `bound` - 1.
  int below(int bound) { return static_cast<int>(engine_() % static_cast<unsigned>(bound)); }
  int between(int least, int most) { return least + below(most - least + 1); }
  bool oneIn(int chances) { return below(chances) == 0; }
  std::string bytes(std::size_t size) {
    std::string all(size, '\0');
    for (char& byte : all) byte = static_cast<char>(below(256));
    return all;
  }
  template <class Range>
  const auto& oneOf(const Range& range) {
    return std::begin(range)[below(static_cast<int>(std::size(range)))];
  }

 private:
  std::mt19937 engine_;
};

}  // namespace zal::campaign
