// What the command thread waits for: a change that another thread reports, a line of input, SIGINT or SIGTERM. Each of
// them has a descriptor, so that one poll(2) waits for all.
// notify() is for any thread, everything else for the command thread.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace zalctl {

using Clock = std::chrono::steady_clock;
inline constexpr Clock::time_point kForever = Clock::time_point::max();

class Waiter {
 public:
  /// Blocks the two signals for this thread and for every thread that it starts from now on, and ignores SIGPIPE.
  Waiter();
  ~Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  /// Has a wait in progress look at its condition again.
  void notify() const noexcept;

  /// Waits until `holds()` is true; false when the deadline passed or a signal came before that.
  [[nodiscard]] bool until(Clock::time_point deadline, const std::function<bool()>& holds);
  /// Waits until a descriptor is readable; false when the deadline passed or a signal came before that.
  [[nodiscard]] bool untilReadable(int descriptor, Clock::time_point deadline);
  /// Waits until a descriptor is readable, a change is reported or a signal came; true for the first.
  [[nodiscard]] bool readableOrChanged(int descriptor) { return waitFor(descriptor, kForever); }
  /// Waits for a signal.
  void untilInterrupted();
  /// The next line of standard input without its end of line; nothing at the end of input or after a signal.
  [[nodiscard]] std::optional<std::string> readLine();

  /// True once SIGINT or SIGTERM came. No wait lasts after that.
  [[nodiscard]] bool interrupted() const { return interrupted_; }

 private:
  /// Waits for a change, a signal, or a descriptor unless it is kNone; true when that one is readable.
  bool waitFor(int descriptor, Clock::time_point deadline);
  [[nodiscard]] std::optional<std::string> takeLine();

  int changes_;  // eventfd
  int signals_;  // signalfd
  bool interrupted_ = false;
  std::string input_;  // read, but not yet handed out
};

}  // namespace zalctl
