// The thread's mask for SIGPIPE while it runs a loop.
#include "base/zal_eventloop/sigpipe.hpp"

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "support/invariant.hpp"

namespace zal::eventloop {
namespace {

thread_local bool isBlockedByLoop = false;

sigset_t onlySigpipe() noexcept {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

/// True when the thread had the signal unblocked.
bool block() noexcept {
  const sigset_t set = onlySigpipe();
  sigset_t before;
  return pthread_sigmask(SIG_BLOCK, &set, &before) == 0 && sigismember(&before, SIGPIPE) == 0;
}

/// A write to a closed socket leaves the blocked signal pending on the thread; unblocked, it would strike now.
void unblock() noexcept {
  const sigset_t set = onlySigpipe();
  const timespec noWait{};
  int taken = 0;
  do {
    taken = sigtimedwait(&set, nullptr, &noWait);
  } while (taken == SIGPIPE || (taken == -1 && errno == EINTR));
  static_cast<void>(pthread_sigmask(SIG_UNBLOCK, &set, nullptr));  // cannot fail with these arguments
}

}  // namespace

SigpipeBlock::SigpipeBlock() noexcept : isOurs_{block()} {
  if (isOurs_) isBlockedByLoop = true;
}

SigpipeBlock::~SigpipeBlock() {
  if (!isOurs_) return;
  ZAL_INVARIANT(isBlockedByLoop);
  isBlockedByLoop = false;
  unblock();
}

SigpipeLift::SigpipeLift() noexcept : isLifted_{isBlockedByLoop} {
  if (isLifted_) unblock();
}

SigpipeLift::~SigpipeLift() {
  if (isLifted_) static_cast<void>(block());
}

}  // namespace zal::eventloop
