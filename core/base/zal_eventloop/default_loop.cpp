// The record of libuv's default loop, which all of its creators in the process share: the first makes it, the last
// destroys it. Making and forgetting happen under one lock; tearing down happens outside of it, since it calls back.
#include <atomic>
#include <new>

#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"

namespace zal::eventloop {
namespace {

struct Shared {
  Mutex lock;
  Loop* record ZAL_GUARDED_BY(lock) = nullptr;
  int users ZAL_GUARDED_BY(lock) = 0;
  /// Written under the lock; an atomic so that creators can wait for the end of a teardown.
  std::atomic<bool> isClosing{false};
};

/// Made once, by the first caller, and never destroyed, since threads may outlive the destructors of statics. Null when
/// memory ran out.
Shared* shared() noexcept {
  static Shared* const made = new (std::nothrow) Shared{};
  return made != nullptr && made->lock.valid() ? made : nullptr;
}

Loop* makeLocked(Shared& state, const char* name) noexcept ZAL_REQUIRES(state.lock) {
  std::unique_ptr<Loop> record = newRecord(name);
  if (!record) return nullptr;
  record->loop = uv_default_loop();
  if (record->loop == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to start uv_loop\n");
    return nullptr;
  }
  record->isDefault = 1;
  state.record = record.release();
  return state.record;
}

}  // namespace

Loop* shareDefault(const char* name) noexcept {
  Shared* const state = shared();
  if (state == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to allocate memory for Eventloop\n");
    return nullptr;
  }
  for (;;) {
    {
      const LockGuard hold{state->lock};
      if (!state->isClosing.load()) {
        if (state->record == nullptr && makeLocked(*state, name) == nullptr) return nullptr;
        ++state->users;
        return state->record;
      }
    }
    state->isClosing.wait(true);
  }
}

Release releaseDefault(Loop& loop) noexcept {
  Shared& state = *shared();
  const LockGuard hold{state.lock};
  if (state.users > 1) {
    --state.users;
    return Release::kShared;
  }
  if (isLoopThread(&loop)) return Release::kRefused;
  state.users = 0;
  state.record = nullptr;
  state.isClosing.store(true);
  return Release::kLast;
}

void defaultClosed() noexcept {
  Shared& state = *shared();
  const LockGuard hold{state.lock};
  state.isClosing.store(false);
  state.isClosing.notify_all();
}

}  // namespace zal::eventloop
