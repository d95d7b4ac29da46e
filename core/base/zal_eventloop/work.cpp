// Worker jobs: libuv takes a job only on the loop's own thread, so a request of another thread becomes a command.
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/zal_eventloop.hpp"
#include "base/zal_eventloop/eventloop.hpp"
#include "base/zal_eventloop/sigpipe.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

namespace zal::eventloop {
namespace {

/// A request with the loop that it was queued at.
struct Job {
  uv_work_t request;  // first, so that libuv's pointer to it is a pointer to the whole
  Loop* loop;
};
static_assert(std::is_standard_layout_v<Job> && offsetof(Job, request) == 0);

/// Whether libuv's pool is known to be up. A forked child starts a pool of its own.
std::atomic<bool> isPoolUp{false};

void watchForForks() noexcept {
  static const int result = pthread_atfork(nullptr, nullptr, [] { isPoolUp.store(false, std::memory_order_relaxed); });
  static_cast<void>(result);  // without memory for it a child's pool is started with the signal blocked
}

/// Loop thread.
void onJobDone(uv_work_t* request, int status) noexcept {
  Loop& loop = *reinterpret_cast<Job*>(request)->loop;
  uvAfterWork(request, status);
  if (!loop.isAsyncOwed.exchange(false) || uv_is_closing(asHandle(&loop.userAsync)) != 0) return;
  loop.userAsyncCallback(&loop.userAsync);
}

}  // namespace

int submitWork(Loop& loop, uv_work_t* request, uv_work_cb callback) noexcept {
  std::optional<SigpipeLift> lift;
  if (!isPoolUp.load(std::memory_order_relaxed)) {
    watchForForks();
    lift.emplace();
  }
  const int result = uv_queue_work(loop.loop, request, callback, onJobDone);
  if (lift && result == 0) isPoolUp.store(true, std::memory_order_relaxed);
  return result;
}

int queueWork(Loop& loop, uv_work_cb callback, void* data) noexcept {
  constexpr char kCaller[] = "ZAL_EventLoop_Work";
  CPtr<Job> job{static_cast<Job*>(std::calloc(1, sizeof(Job)))};
  if (!job) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kCaller, "Unable to allocate memory for a worker job\n");
    return UV_ENOMEM;
  }
  job->request.data = data;
  job->loop = &loop;
  const auto submit = [&] {
    const int result = submitWork(loop, &job->request, callback);
    if (result == 0) static_cast<void>(job.release());  // onJobDone frees it
    return result;
  };
  if (isLoopThread(&loop)) return submit();

  const LockGuard hold{loop.queueLock};
  if (loop.phase.load() == Phase::kResting) return submit();
  CommandPtr command = makeCommand(ZAL_EVENTLOOP_CMD_WORK, nullptr, kCaller);
  if (!command) return UV_ENOMEM;
  command->work = &job.release()->request;
  command->workCallback = callback;
  appendLocked(loop, std::move(command));
  return 0;
}

}  // namespace zal::eventloop

void zal::sendAsyncWithJobEnd(ZAL_EventLoopContext loop) noexcept {
  if (eventloop::hasFlag(*loop, eventloop::kUserAsyncInstalled)) loop->isAsyncOwed.store(true);
}
