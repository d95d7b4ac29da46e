// The record of libuv's default loop, which all of its creators in the process share: the first makes it, the last
// destroys it. Making and forgetting happen under one lock; tearing down happens outside of it, since it calls back.
#include <atomic>
#include <memory>

#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"

namespace zal::eventloop {
namespace {

// They need no memory, and no destructor ends them before the last thread has used them.
constinit StaticMutex sharedLock;
constinit Loop* sharedRecord ZAL_GUARDED_BY(sharedLock) = nullptr;
constinit int users ZAL_GUARDED_BY(sharedLock) = 0;
/// Written under the lock; an atomic so that creators can wait for the end of a teardown.
constinit std::atomic<bool> isClosing{false};

Loop* makeLocked(const char* name) noexcept ZAL_REQUIRES(sharedLock) {
  std::unique_ptr<Loop> record = newRecord(name);
  if (!record) return nullptr;
  record->loop = uv_default_loop();
  if (record->loop == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to start uv_loop\n");
    return nullptr;
  }
  record->isDefault = 1;
  return record.release();
}

}  // namespace

Loop* shareDefault(const char* name) noexcept {
  for (;;) {
    {
      const LockGuard hold{sharedLock};
      if (!isClosing.load()) {
        if (sharedRecord == nullptr) sharedRecord = makeLocked(name);
        if (sharedRecord != nullptr) ++users;
        return sharedRecord;
      }
    }
    isClosing.wait(true);
  }
}

Release releaseDefault(Loop& loop) noexcept {
  const LockGuard hold{sharedLock};
  ZAL_INVARIANT(users > 0 && sharedRecord == &loop);
  if (users > 1) {
    --users;
    return Release::kShared;
  }
  if (isLoopThread(&loop)) return Release::kRefused;
  users = 0;
  sharedRecord = nullptr;
  isClosing.store(true);
  return Release::kLast;
}

void defaultClosed() noexcept {
  const LockGuard hold{sharedLock};
  ZAL_INVARIANT(isClosing.load() && users == 0);
  isClosing.store(false);
  isClosing.notify_all();
}

}  // namespace zal::eventloop
