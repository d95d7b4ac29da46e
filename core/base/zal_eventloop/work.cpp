// Worker jobs: libuv takes a job only on the loop's own thread, so a request of another thread becomes a command.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <utility>

#include "base/zal_eventloop/eventloop.hpp"
#include "base/zal_eventloop/sigpipe.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"
#include "support/number.hpp"

namespace zal::eventloop {
namespace {

/// What is known of libuv's pool. A forked child starts a pool of its own.
std::atomic<bool> isPoolUp{false};
std::atomic<bool> isPoolReserved{false};

void watchForForks() noexcept {
  static const int result = pthread_atfork(nullptr, nullptr, [] {
    isPoolUp.store(false, std::memory_order_relaxed);
    isPoolReserved.store(false, std::memory_order_relaxed);
  });
  static_cast<void>(result);  // without memory for it a child's pool is started with the signal blocked
}

/// Makes threads of the pool's number and kind and ends them again; 0, or the error of the first that could not be
/// made.
int tryThreads() noexcept {
  constexpr std::size_t kMost = 16;
  uv_thread_t threads[kMost];
  const std::size_t wanted = std::min(workerPoolSize(), kMost);
  std::size_t made = 0;
  int result = 0;
  std::mutex gate;  // they live at the same time
  {
    const std::lock_guard hold{gate};
    const auto pass = [](void* held) { const std::lock_guard through{*static_cast<std::mutex*>(held)}; };
    while (result == 0 && made < wanted)
      if (result = uv_thread_create(&threads[made], pass, &gate); result == 0) ++made;
  }
  while (made > 0) static_cast<void>(uv_thread_join(&threads[--made]));  // none of them is this one
  return result;
}

/// libuv aborts when it finds no thread for its pool. The stacks of ended threads are kept by the C library, so that
/// the pool takes those of the trial and needs no memory any more.
int reservePool() noexcept {
  if (isPoolReserved.load(std::memory_order_relaxed)) return 0;
  const int result = tryThreads();
  isPoolReserved.store(result == 0, std::memory_order_relaxed);
  return result;
}

std::size_t readPoolSize() noexcept {
  constexpr int kDefault = 4;
  constexpr int kMost = 1024;
  const char* const wish = std::getenv("UV_THREADPOOL_SIZE");
  return static_cast<std::size_t>(wish == nullptr ? kDefault : std::clamp(readInt32(wish), 1, kMost));
}

}  // namespace

int submitWork(Loop& loop, uv_work_t* request, uv_work_cb callback) noexcept {
  ZAL_INVARIANT(mayCallLibuv(loop));
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
  if (const int result = reservePool(); result != 0) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kCaller, "No threads for worker jobs: %s\n", uv_strerror(result));
    return result;
  }
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

std::size_t zal::workerPoolSize() noexcept {
  static const std::size_t size = eventloop::readPoolSize();
  return size;
}
