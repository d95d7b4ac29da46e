#include "waiter.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <utility>

namespace zalctl {
namespace {

constexpr int kNone = -1;  // poll(2) leaves it out

int checked(int descriptor, const char* what) {
  if (descriptor < 0) throw std::system_error{errno, std::generic_category(), what};
  return descriptor;
}

/// The time-out for poll(2): rounded up, so that the deadline has passed when it ends.
int millisecondsUntil(Clock::time_point deadline) {
  if (deadline == kForever) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

sigset_t blockSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  return set;
}

}  // namespace

Waiter::Waiter() : changes_{checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")} {
  const sigset_t set = blockSignals();
  signals_ = checked(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
  // When the reader of the output goes away, the agent still ends in order and takes its socket with it.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

Waiter::~Waiter() {
  close(signals_);
  close(changes_);
}

void Waiter::notify() const noexcept {
  const std::uint64_t one = 1;
  // It can fail only when the counter is full, and then the wait ends anyway.
  static_cast<void>(!write(changes_, &one, sizeof one));
}

bool Waiter::until(Clock::time_point deadline, const std::function<bool()>& holds) {
  while (!holds()) {
    if (interrupted_ || Clock::now() >= deadline) return false;
    waitFor(kNone, deadline);
  }
  return true;
}

bool Waiter::untilReadable(int descriptor, Clock::time_point deadline) {
  while (!interrupted_) {
    if (waitFor(descriptor, deadline)) return true;
    if (Clock::now() >= deadline) return false;
  }
  return false;
}

void Waiter::untilInterrupted() {
  while (!interrupted_) waitFor(kNone, kForever);
}

std::optional<std::string> Waiter::readLine() {
  while (!interrupted_) {
    if (auto line = takeLine()) return line;
    if (!waitFor(STDIN_FILENO, kForever)) continue;
    std::array<char, 4096> chunk{};
    const ssize_t count = read(STDIN_FILENO, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    input_.append(chunk.data(), static_cast<std::size_t>(count));
  }
  // A last line need not end.
  if (interrupted_ || input_.empty()) return std::nullopt;
  return std::exchange(input_, {});
}

std::optional<std::string> Waiter::takeLine() {
  const auto end = input_.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = input_.substr(0, end);
  input_.erase(0, end + 1);
  return line;
}

bool Waiter::waitFor(int descriptor, Clock::time_point deadline) {
  std::array<pollfd, 3> polled{{{changes_, POLLIN, 0}, {signals_, POLLIN, 0}, {descriptor, POLLIN, 0}}};
  if (poll(polled.data(), polled.size(), millisecondsUntil(deadline)) <= 0) return false;
  std::uint64_t changes = 0;
  // Taken back to zero before the caller looks at its condition, so that no change after that look is missed.
  if (polled[0].revents != 0) static_cast<void>(!read(changes_, &changes, sizeof changes));
  if (polled[1].revents != 0) interrupted_ = true;
  return polled[2].revents != 0;
}

}  // namespace zalctl
