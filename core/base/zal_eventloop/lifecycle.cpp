// The life of a loop: made, run, stopped, run again, destroyed. A run belongs to one thread, which alone ends it; the
// other threads ask for the end and wait. Whoever starts or ends a run holds the life lock.
#include <fcntl.h>
#include <sys/eventfd.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "base/zal_eventloop/eventloop.hpp"
#include "base/zal_eventloop/sigpipe.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

namespace zal::eventloop {
namespace {

/// Rounds that a stopped loop is given to come to rest: one, unless its close callbacks keep asking for more.
constexpr int kMaxRounds = 16;
constexpr int kCloseTries = 2;

constexpr char kRun[] = "ZAL_EventLoop_Run";

void logAlreadyRunning(const Loop& loop) noexcept {
  ZAL_LOG_AS(ZAL_LOG_ERROR, kRun, "EventLoop %s already running\n", nameOf(loop));
}

void setPhaseLocked(Loop& loop, Phase phase) noexcept ZAL_REQUIRES(loop.queueLock) {
  // Only a resting loop is run or closed, and what is closed stays so.
  ZAL_INVARIANT((loop.phase.load() == Phase::kResting) == (phase != Phase::kResting));
  ZAL_INVARIANT(loop.phase.load() != Phase::kClosing);
  loop.phase.store(phase);
  loop.phase.notify_all();
}

/// Waits until the thread in uv_run has let go of the loop.
void awaitLeft(Loop& loop) noexcept {
  loop.phase.wait(Phase::kRunning);
  const LockGuard hold{loop.queueLock};  // the leaving thread is out of the lock, and so out of the record
}

/// Ends this thread's run, unless commands came in meanwhile: changing the phase and finding the queue empty is one
/// step. The last round ends it in any case, and executes them itself: on a resting loop nobody would.
bool leaveIfDrained(Loop& loop, bool isLastRound) noexcept {
  const LockGuard hold{loop.queueLock};
  if (loop.queueHead != nullptr && !isLastRound) return false;
  drainLocked(loop);
  ZAL_INVARIANT(loop.queueHead == nullptr);
  clearFlag(loop, kRunning);
  loop.runner.store(0);
  setPhaseLocked(loop, Phase::kResting);
  return true;
}

/// What the thread of a run does. The record may be gone when this returns.
void serve(Loop& loop) noexcept {
  const SigpipeBlock block;
  ZAL_INVARIANT(loop.phase.load() == Phase::kRunning && loop.runner.load() == 0);
  loop.runner.store(pthread_self());
  if (loop.name != nullptr) pthread_setname_np(pthread_self(), loop.name);  // too long a name: the thread has none
  ZAL_EventLoop_ExecuteCommands(&loop);
  uv_run(loop.loop, UV_RUN_DEFAULT);

  // What was asked to be closed before the end is closed, callbacks included, when the run is over.
  for (int round = 1; round <= kMaxRounds; ++round) {
    ZAL_EventLoop_ExecuteCommands(&loop);
    uv_run(loop.loop, UV_RUN_NOWAIT);
    if (leaveIfDrained(loop, round == kMaxRounds)) return;
  }
}

void threadMain(void* loop) noexcept {
  serve(*static_cast<Loop*>(loop));
}

void joinLocked(Loop& loop) noexcept ZAL_REQUIRES(loop.lifeLock) {
  if (loop.thread == 0) return;
  ZAL_INVARIANT(pthread_equal(loop.thread, pthread_self()) == 0);
  if (const int result = uv_thread_join(&loop.thread); result != 0)
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Stop", "thread join error: %d\n", result);
  loop.thread = 0;
}

/// Takes hold of a resting loop for a run; false, with a log line, when it cannot run.
bool beginRunLocked(Loop& loop) noexcept ZAL_REQUIRES(loop.lifeLock) {
  const LockGuard hold{loop.queueLock};
  if (loop.phase.load() != Phase::kResting) {
    logAlreadyRunning(loop);
    return false;
  }
  loop.commandAsync.data = &loop;
  if (!loop.commandAsyncReady) {
    if (const int result = uv_async_init(loop.loop, &loop.commandAsync, onWake); result != 0) {
      ZAL_LOG_AS(ZAL_LOG_ERROR, kRun, "Unable to start event loop %s: %s\n", nameOf(loop), uv_strerror(result));
      return false;
    }
    loop.commandAsyncReady = true;
  }
  loop.stopRequested = false;
  setFlag(loop, kRunning);
  setPhaseLocked(loop, Phase::kRunning);
  return true;
}

void startThreadLocked(Loop& loop) noexcept ZAL_REQUIRES(loop.lifeLock) {
  uv_thread_options_t options{};
  options.flags = UV_THREAD_NO_FLAGS;
  const SigpipeLift lift;  // this thread may serve another loop, and the new one inherits its mask
  const int result = uv_thread_create_ex(&loop.thread, &options, threadMain, &loop);
  if (result == 0) return;
  ZAL_LOG_AS(ZAL_LOG_ERROR, kRun, "Unable to start the thread of event loop %s: %s\n", nameOf(loop),
             uv_strerror(result));
  loop.thread = 0;
  leaveIfDrained(loop, true);
}

/// Starts a run; true when the caller's thread is the one that has to serve it.
bool begin(Loop& loop) noexcept {
  const LockGuard hold{loop.lifeLock};
  if (hasFlag(loop, kRunning)) {
    logAlreadyRunning(loop);
    return false;
  }
  joinLocked(loop);  // a thread that stopped its own loop was left to the next one who comes
  awaitLeft(loop);
  if (!beginRunLocked(loop)) return false;
  if (loop.isDefault == 0) startThreadLocked(loop);
  return loop.isDefault != 0;
}

/// Asks the thread of the run to end it. On another thread.
void requestEnd(Loop& loop) noexcept {
  const LockGuard hold{loop.queueLock};
  clearFlag(loop, kRunning);
  if (loop.phase.load() != Phase::kRunning) return;
  loop.stopRequested = true;
  static_cast<void>(uv_async_send(&loop.commandAsync));  // cannot fail on an open async
}

/// Nobody but this thread touches the loop's libuv side any more; what other threads still ask for is only queued.
void beginClosing(Loop& loop) noexcept {
  const LockGuard hold{loop.queueLock};
  clearFlag(loop, kUserAsyncInstalled);
  loop.runner.store(pthread_self());
  setPhaseLocked(loop, Phase::kClosing);
}

/// Executes what is queued, closes what is open and waits for jobs and callbacks, again while these ask for more.
bool closeAll(Loop& loop) noexcept {
  for (int tries = 0; tries < kCloseTries;) {
    ZAL_EventLoop_ExecuteCommands(&loop);
    closeAsyncPoll(loop);
    uv_walk(loop.loop, walk_cb, nullptr);
    uv_run(loop.loop, UV_RUN_DEFAULT);
    const LockGuard hold{loop.queueLock};
    if (loop.queueHead != nullptr) continue;
    if (uv_loop_close(loop.loop) == 0) return true;
    ++tries;
  }
  return false;
}

void checkRefCount(Loop& loop) noexcept {
  const LockGuard hold{loop.queueLock};
  if (loop.refCount == 0) return;
  ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Destroy", "Unexpected refCount in ZAL_EventLoop_Destroy() for %p (%s), %d\n",
             static_cast<void*>(&loop), nameOf(loop), loop.refCount);
}

/// libuv aborts when its table of descriptors cannot grow. It grows here, where the loop is made, to what few programs
/// go beyond, rather than amid a connect.
void growTable(uv_loop_t& loop) noexcept {
  constexpr int kHigh = 253;
  const Descriptor event{eventfd(0, EFD_CLOEXEC)};
  const Descriptor high{fcntl(event.get(), F_DUPFD_CLOEXEC, kHigh)};
  uv_poll_t poll{};
  if (!high.isOpen() || uv_poll_init(&loop, &poll, high.get()) != 0) return;
  static_cast<void>(uv_poll_start(&poll, UV_READABLE, [](uv_poll_t*, int, int) {}));  // fails for a closed handle alone
  uv_close(asHandle(&poll), nullptr);
  uv_run(&loop, UV_RUN_NOWAIT);
}

}  // namespace

std::unique_ptr<Loop> newRecord(const char* name) noexcept {
  std::unique_ptr<Loop> record{new (std::nothrow) Loop{}};
  if (record && record->queueLock.valid() && record->lifeLock.valid()) {
    record->name = name;
    return record;
  }
  ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to allocate memory for Eventloop\n");
  return nullptr;
}

Loop* createOwn(const char* name) noexcept {
  std::unique_ptr<Loop> record = newRecord(name);
  if (!record) return nullptr;
  CPtr<uv_loop_t> loop{static_cast<uv_loop_t*>(std::calloc(1, sizeof(uv_loop_t)))};
  if (!loop) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to allocate memory for Eventloop\n");
    return nullptr;
  }
  if (uv_loop_init(loop.get()) != 0) {
    const Descriptor forgotten{uv_backend_fd(loop.get()) > 0 ? uv_backend_fd(loop.get()) : -1};  // libuv leaves it open
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Create", "Unable to start uv_loop\n");
    return nullptr;
  }
  growTable(*loop);
  record->loop = loop.release();
  return record.release();
}

void run(Loop& loop) noexcept {
  if (isLoopThread(&loop)) return logAlreadyRunning(loop);
  if (begin(loop)) serve(loop);
}

void leaveSoon(Loop& loop) noexcept {
  uv_stop(loop.loop);
  if (!hasFlag(loop, kIdleStarted)) return;
  static_cast<void>(uv_idle_stop(&loop.idle));  // always 0
  clearFlag(loop, kIdleStarted);
}

void stop(Loop& loop) noexcept {
  if (isLoopThread(&loop)) {
    if (!hasFlag(loop, kRunning)) return;
    clearFlag(loop, kRunning);
    return leaveSoon(loop);
  }
  const LockGuard hold{loop.lifeLock};
  if (hasFlag(loop, kRunning)) requestEnd(loop);
  joinLocked(loop);
}

Release release(Loop& loop) noexcept {
  if (loop.isDefault != 0) return releaseDefault(loop);
  return isLoopThread(&loop) ? Release::kRefused : Release::kLast;
}

void destroy(std::unique_ptr<Loop> loop) noexcept {
  stop(*loop);
  awaitLeft(*loop);
  const SigpipeBlock block;  // closing may flush what is left to write
  beginClosing(*loop);
  if (!closeAll(*loop)) ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Destroy", "Unable to close event loop\n");
  checkRefCount(*loop);

  const bool isDefault = loop->isDefault != 0;
  if (!isDefault) std::free(loop->loop);
  loop.reset();
  if (isDefault) defaultClosed();
}

}  // namespace zal::eventloop

bool zal::isRunning(ZAL_EventLoopContext loop) noexcept {
  return eventloop::hasFlag(*loop, eventloop::kRunning);
}

bool zal::isLoopThread(const ZAL_EventLoopContext_* loop) noexcept {
  return loop != nullptr && loop->runner.load() == pthread_self();
}
