// The allocator of a test program: it stands before the C library's for everything in the process, so the library and
// the libraries under it get their memory from here. It fails as fault.hpp plans, and knows which blocks are alive.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace faults {

/// How many blocks of one size are alive.
struct LiveSize {
  std::size_t size;
  int count;
};

/// The blocks that were allocated since watchBlocks() and not freed, by size.
struct LiveBlocks {
  static constexpr std::size_t kMost = 256;

  std::array<LiveSize, kMost> sizes;
  std::size_t used;

  /// The size of a block that is alive here beyond those of `known`; 0 when there is none.
  [[nodiscard]] std::size_t surplusOver(const LiveBlocks& known) const noexcept;
  [[nodiscard]] int countOf(std::size_t size) const noexcept;
};

/// From here on blocks are remembered, but for those of an Aside.
void watchBlocks() noexcept;
[[nodiscard]] LiveBlocks liveBlocks() noexcept;

}  // namespace faults
