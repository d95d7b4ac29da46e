#include "support/fault.hpp"

#include <execinfo.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>

namespace faults {

namespace {

std::atomic<bool> armed{false};
std::atomic<Kind> plannedKind{Kind::kAllocation};
std::atomic<Mode> plannedMode{Mode::kNone};
std::atomic<std::uint64_t> plannedPoint{0};
std::atomic<std::uint64_t> eventCount{0};
std::atomic<std::uint64_t> failedCount{0};

thread_local int asideDepth = 0;

/// Whether the time of a fault that ends by itself is over; it begins here.
bool isWhileOver() noexcept {
  constexpr std::chrono::milliseconds kWhile{40};
  static std::atomic<std::chrono::steady_clock::duration> begin{};
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  if (failedCount == 0) begin = now;
  return now - begin.load() > kWhile;
}

bool isPlanned(std::uint64_t event) noexcept {
  switch (plannedMode.load()) {
    case Mode::kOnce:
      return event == plannedPoint.load();
    case Mode::kFromThereOn:
      return event >= plannedPoint.load();
    case Mode::kForAWhile:
      return event >= plannedPoint.load() && !isWhileOver();
    case Mode::kNone:
      break;
  }
  return false;
}

void traceFirst() noexcept {
  if (!isTracing()) return;
  const Aside aside;
  std::array<void*, 24> frames{};
  backtrace_symbols_fd(frames.data(), backtrace(frames.data(), static_cast<int>(frames.size())), STDERR_FILENO);
}

}  // namespace

bool isTracing() noexcept {
  static const bool isWanted = std::getenv("ZAL_FAULTS_TRACE") != nullptr;
  return isWanted;
}

void arm(Kind kind, Mode mode, std::uint64_t point) noexcept {
  plannedKind = kind;
  plannedMode = mode;
  plannedPoint = point;
  eventCount = 0;
  failedCount = 0;
  armed = true;
}

void disarm() noexcept {
  armed = false;
}

bool isArmed() noexcept {
  return armed;
}

bool strikes(Kind kind) noexcept {
  if (!armed || kind != plannedKind || Aside::isInside()) return false;
  if (!isPlanned(++eventCount)) return false;
  if (++failedCount == 1) traceFirst();
  return true;
}

std::uint64_t events() noexcept {
  return eventCount;
}

std::uint64_t strikeCount() noexcept {
  return failedCount;
}

Aside::Aside() noexcept {
  ++asideDepth;
}

Aside::~Aside() {
  --asideDepth;
}

bool Aside::isInside() noexcept {
  return asideDepth > 0;
}

}  // namespace faults
