// The handles of a loop: timers and polls, which are made here and started, stopped and freed through the command
// queue; the one user async and the one idle handle, which stand in the record; and how the loop closes what is left.
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

namespace zal::eventloop {
namespace {

/// A zeroed handle in malloc's memory, as close_cb frees it; null, with a log line, when memory runs out.
template <class Handle>
CPtr<Handle> makeHandle(const char* function) noexcept {
  static_assert(std::is_trivial_v<Handle>);
  CPtr<Handle> handle{static_cast<Handle*>(std::calloc(1, sizeof(Handle)))};
  if (!handle) ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Unable to allocate memory for an event loop handle\n");
  return handle;
}

/// Queues the start of a new handle; `fill` completes the command. The loop owns the handle from then on.
template <class Handle, class Fill>
Handle* requestStart(Loop& loop, CommandType type, const char* function, Fill fill) noexcept {
  CPtr<Handle> handle = makeHandle<Handle>(function);
  if (!handle) return nullptr;
  CommandPtr command = makeCommand(type, asHandle(handle.get()), function);
  if (!command) return nullptr;
  fill(*command);
  enqueue(loop, std::move(command));
  return handle.release();
}

/// The queued stop comes an iteration later. On the loop thread the handle is silent at once, so that a callback which
/// stops it may go on to free what it works on.
void silence(const Loop& loop, uv_handle_t* handle) noexcept {
  if (!isLoopThread(&loop) || uv_is_closing(handle) != 0) return;
  const uv_handle_type type = uv_handle_get_type(handle);  // not set before the start has been executed
  if (type == UV_TIMER) static_cast<void>(uv_timer_stop(reinterpret_cast<uv_timer_t*>(handle)));
  if (type == UV_POLL) static_cast<void>(uv_poll_stop(reinterpret_cast<uv_poll_t*>(handle)));
}

void onAsyncEvent(uv_poll_t* poll, int /*status*/, int /*events*/) noexcept {
  Loop& loop = *static_cast<Loop*>(poll->data);
  ZAL_INVARIANT(isLoopThread(&loop) && loop.asyncEvent->isOpen());
  std::uint64_t count = 0;
  static_cast<void>(loop.asyncEvent->readOnce(&count, sizeof count));
  loop.isAsyncSent.store(false);  // before the callback: what is sent while it runs calls it again
  loop.userAsyncCallback(&loop.userAsync);
}

/// 0, or a negative libuv error with nothing left behind.
int startAsyncPoll(Loop& loop) noexcept {
  loop.asyncEvent.emplace(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!loop.asyncEvent->isOpen()) return uv_translate_sys_error(errno);
  if (const int result = uv_poll_init(loop.loop, &loop.asyncPoll, loop.asyncEvent->get()); result != 0) {
    loop.asyncPoll = {};
    loop.asyncEvent.reset();
    return result;
  }
  loop.asyncPoll.data = &loop;
  return uv_poll_start(&loop.asyncPoll, UV_READABLE, onAsyncEvent);  // fails for a closed handle alone
}

}  // namespace

uv_timer_t* startTimer(Loop& loop, uv_timer_cb callback, std::uint64_t timeout, std::uint64_t repeat,
                       void* context) noexcept {
  return requestStart<uv_timer_t>(loop, ZAL_EVENTLOOP_CMD_START_TIMER, "ZAL_EventLoop_StartTimer",
                                  [&](Command& command) {
                                    command.timerCallback = callback;
                                    command.timeout = timeout;
                                    command.repeat = repeat;
                                    command.context = context;
                                  });
}

uv_poll_t* startPoll(Loop& loop, uv_poll_cb callback, int descriptor, void* context) noexcept {
  return requestStart<uv_poll_t>(loop, ZAL_EVENTLOOP_CMD_START_POLL, "ZAL_EventLoop_StartPoll", [&](Command& command) {
    command.pollCallback = callback;
    command.fd = descriptor;
    command.context = context;
  });
}

void requestStop(Loop& loop, CommandType type, uv_handle_t* handle, const char* function) noexcept {
  silence(loop, handle);
  if (CommandPtr command = makeCommand(type, handle, function)) enqueue(loop, std::move(command));
}

bool installAsync(Loop& loop, uv_async_cb callback, void* context) noexcept {
  ZAL_INVARIANT(mayCallLibuv(loop));
  if (hasFlag(loop, kUserAsyncInstalled)) return true;
  loop.userAsync.data = context;
  loop.userAsyncCallback = callback;
  int result = startAsyncPoll(loop);
  if (result == 0) result = uv_async_init(loop.loop, &loop.userAsync, callback);
  if (result != 0) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_AsyncInit", "Unable to install the async: %s\n", uv_strerror(result));
    return false;
  }
  setFlag(loop, kUserAsyncInstalled);
  return true;
}

void sendAsync(Loop& loop) noexcept {
  constexpr std::uint64_t kOne = 1;
  if (loop.isAsyncSent.exchange(true)) return;
  ssize_t written = 0;
  do {
    written = write(loop.asyncEvent->get(), &kOne, sizeof kOne);
  } while (written < 0 && (errno == EINTR || errno == EAGAIN));  // never full: one is added between two reads
  if (written >= 0) return;
  loop.isAsyncSent.store(false);
  static_cast<void>(uv_async_send(&loop.userAsync));  // the same callback, by libuv's own way
}

void closeAsyncPoll(Loop& loop) noexcept {
  if (uv_handle_get_type(asHandle(&loop.asyncPoll)) == UV_POLL && uv_is_closing(asHandle(&loop.asyncPoll)) == 0)
    uv_close(asHandle(&loop.asyncPoll), nullptr);
}

bool initAsync(Loop& loop, uv_async_cb callback, void* context) noexcept {
  if (isLoopThread(&loop)) return installAsync(loop, callback, context);

  const LockGuard hold{loop.queueLock};
  if (loop.phase.load() == Phase::kResting) return installAsync(loop, callback, context);
  CommandPtr command = makeCommand(ZAL_EVENTLOOP_CMD_INIT_ASYNC, asHandle(&loop.userAsync), "ZAL_EventLoop_AsyncInit");
  if (!command) return false;
  command->asyncCallback = callback;
  command->context = context;
  appendLocked(loop, std::move(command));
  return true;
}

void initIdle(Loop& loop, uv_idle_cb callback, void* context) noexcept {
  const LockGuard hold{loop.queueLock};
  if (loop.phase.load() != Phase::kResting) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_IdleInit",
               "ZAL_EventLoop_IdleInit should be called before the loop starts");
    return;
  }
  if (loop.refCount != 0) return;

  if (hasFlag(loop, kIdleStarted)) static_cast<void>(uv_idle_stop(&loop.idle));  // always 0
  clearFlag(loop, kIdleStarted);
  loop.idle.data = context;
  // Once a loop: a second initialisation would link the handle into the loop's list twice.
  if (!std::exchange(loop.idleReady, true)) static_cast<void>(uv_idle_init(loop.loop, &loop.idle));  // always 0
  if (uv_idle_start(&loop.idle, callback) == 0) setFlag(loop, kIdleStarted);
}

}  // namespace zal::eventloop

bool zal::initUserAsync(ZAL_EventLoopContext loop, uv_async_cb callback, void* context) noexcept {
  return eventloop::initAsync(*loop, callback, context);
}

namespace {

/// Where libuv calls are allowed for a thread that is the loop's, or finds the loop at rest.
template <class Call>
void callOnTimer(ZAL_EventLoopContext loop, Call call) noexcept {
  if (zal::isLoopThread(loop)) return call();
  const zal::LockGuard hold{loop->queueLock};
  call();
}

}  // namespace

void zal::startOwnTimer(ZAL_EventLoopContext loop, uv_timer_t& timer, uv_timer_cb callback,
                        std::uint64_t timeoutMs) noexcept {
  callOnTimer(loop, [&] {
    uv_update_time(loop->loop);                                         // as for the loop's timers
    static_cast<void>(uv_timer_start(&timer, callback, timeoutMs, 0));  // callback is set
  });
}

void zal::stopOwnTimer(ZAL_EventLoopContext loop, uv_timer_t& timer) noexcept {
  callOnTimer(loop, [&] { static_cast<void>(uv_timer_stop(&timer)); });  // always 0
}

void close_cb(uv_handle_t* handle) noexcept {
  const uv_handle_type type = uv_handle_get_type(handle);
  ZAL_LOG(ZAL_LOG_TRACE, "ZAL_EventLoopContext: closed() (%p) (%d/%s)\n", static_cast<void*>(handle),
          static_cast<int>(type), uv_handle_type_name(type));
  if (type != UV_TIMER && type != UV_POLL && type != UV_FS_EVENT) return;
  ZAL_LOG(ZAL_LOG_TRACE, "ZAL_EventLoopContext: free hdl=%p\n", static_cast<void*>(handle));
  std::free(handle);
}

void walk_cb(uv_handle_t* handle, void* /*context*/) noexcept {
  if (uv_is_closing(handle) != 0) return;
  const uv_handle_type type = uv_handle_get_type(handle);
  if (type != UV_ASYNC && type != UV_IDLE)
    ZAL_LOG(ZAL_LOG_ERROR, "Found a handle that was not closed properly (%p) (%d/%s)\n", static_cast<void*>(handle),
            static_cast<int>(type), uv_handle_type_name(type));
  uv_close(handle, close_cb);
}
