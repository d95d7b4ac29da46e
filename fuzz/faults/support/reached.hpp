// Which of the library's exported functions are entered, whoever calls them: in a child, each gets a breakpoint at its
// first instruction, which is taken away when it is met. On x86-64 alone, and not in a build with sanitizers.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "support/shared.hpp"

namespace faults {

class Reached {
 public:
  /// The functions that a version script exports; none of them with an empty path.
  explicit Reached(const std::string& versionScript);

  /// In a child: sets the breakpoints.
  void watch() const;
  /// Says how many were entered, and names those that were not. True when there are none of these.
  [[nodiscard]] bool print() const;

 private:
  static constexpr std::size_t kMost = 512;
  using Entered = std::array<bool, kMost>;

  struct Function {
    std::string name;
    unsigned char* code;
  };
  std::vector<Function> functions_;
  Shared<Entered> entered_;
};

}  // namespace faults
