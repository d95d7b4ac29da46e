// System calls of a test program that stand before the C library's: for what the library and libuv call of it, by the
// address that a call comes from. They fail as planned, in the way of the call, without doing what they should (but
// close(), which closes in any case, as Linux does).
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "support/fault.hpp"

namespace faults {

/// One call that is watched, with the errors that it is tried with.
struct Call {
  const char* name;
  std::array<int, 5> errors;
};

std::span<const Call> calls() noexcept;

/// From here on one call fails as planned. The number is the place in calls().
void armCall(std::size_t call, int error, Mode mode, std::uint64_t point) noexcept;
/// How often each call came since the process began to count.
void countCalls(std::span<std::uint64_t> counts) noexcept;

}  // namespace faults
