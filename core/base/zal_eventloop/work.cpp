// Worker jobs: libuv takes a job only on the loop's own thread, so a request of another thread becomes a command.
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <utility>

#include "base/zal_eventloop/eventloop.hpp"
#include "base/zal_eventloop/sigpipe.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

namespace zal::eventloop {
namespace {

/// Whether libuv's pool is known to be up. A forked child starts a pool of its own.
std::atomic<bool> isPoolUp{false};

void watchForForks() noexcept {
  static const int result = pthread_atfork(nullptr, nullptr, [] { isPoolUp.store(false, std::memory_order_relaxed); });
  static_cast<void>(result);  // without memory for it a child's pool is started with the signal blocked
}

}  // namespace

int submitWork(Loop& loop, uv_work_t* request, uv_work_cb callback) noexcept {
  std::optional<SigpipeLift> lift;
  if (!isPoolUp.load(std::memory_order_relaxed)) {
    watchForForks();
    lift.emplace();
  }
  const int result = uv_queue_work(loop.loop, request, callback, uvAfterWork);
  if (lift && result == 0) isPoolUp.store(true, std::memory_order_relaxed);
  return result;
}

int queueWork(Loop& loop, uv_work_cb callback, void* data) noexcept {
  constexpr char kCaller[] = "ZAL_EventLoop_Work";
  CPtr<uv_work_t> request{static_cast<uv_work_t*>(std::calloc(1, sizeof(uv_work_t)))};
  if (!request) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kCaller, "Unable to allocate memory for a worker job\n");
    return UV_ENOMEM;
  }
  request->data = data;
  const auto submit = [&] {
    const int result = submitWork(loop, request.get(), callback);
    if (result == 0) static_cast<void>(request.release());  // uvAfterWork frees it
    return result;
  };
  if (isLoopThread(&loop)) return submit();

  const LockGuard hold{loop.queueLock};
  if (loop.phase.load() == Phase::kResting) return submit();
  CommandPtr command = makeCommand(ZAL_EVENTLOOP_CMD_WORK, nullptr, kCaller);
  if (!command) return UV_ENOMEM;
  command->work = request.release();
  command->workCallback = callback;
  appendLocked(loop, std::move(command));
  return 0;
}

}  // namespace zal::eventloop
