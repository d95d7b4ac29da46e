// The plan of one point: which of the counted events fails, and how. The interposed allocator and the interposed system
// calls ask it. Any thread, at any time, also before main().
#pragma once

#include <cstdint>

namespace faults {

enum class Kind : std::uint8_t { kAllocation, kSystemCall };
enum class Mode : std::uint8_t { kNone, kOnce, kFromThereOn, kForAWhile };

/// Counting starts: of the events of this kind, the one of this number (from 1) is to fail.
void arm(Kind kind, Mode mode, std::uint64_t point) noexcept;
/// Counting ends, and nothing fails any more.
void disarm() noexcept;
[[nodiscard]] bool isArmed() noexcept;

/// One event: true when it is to fail.
[[nodiscard]] bool strikes(Kind kind) noexcept;
/// Events since arm(), and how many of them failed.
[[nodiscard]] std::uint64_t events() noexcept;
[[nodiscard]] std::uint64_t strikeCount() noexcept;

/// Whether the environment asks for traces (ZAL_FAULTS_TRACE): where a fault struck first, and where libuv aborted.
[[nodiscard]] bool isTracing() noexcept;

/// What this thread does in the scope is the scenario's own affair: it neither counts nor fails.
class Aside {
 public:
  Aside() noexcept;
  ~Aside();
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;

  [[nodiscard]] static bool isInside() noexcept;
};

}  // namespace faults
