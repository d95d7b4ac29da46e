// The command queue: any thread appends, and whoever owns the libuv side of the loop executes, in order, under the
// queue lock. Nothing that runs here may enqueue, since the lock is not recursive; user code runs from uv_run alone.
#include <cstdlib>
#include <iterator>
#include <new>
#include <utility>

#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"

namespace zal::eventloop {
namespace {

constexpr char kExecutor[] = "ZAL_EventLoop_ExecuteCommands";

template <class Handle>
Handle* handleAs(const Command& command) noexcept {
  return reinterpret_cast<Handle*>(command.handle);
}

/// Logs a handle that is closed a second time; `how` is what the first time has come to.
void logDoubleClose(const char* function, const uv_handle_t* handle, const char* how) noexcept {
  const uv_handle_type type = uv_handle_get_type(handle);
  ZAL_LOG_AS(ZAL_LOG_ERROR, function, "%s: handle (%p) (%d/%s) is %s, double close? FIX-ME!!!\n", function,
             static_cast<const void*>(handle), static_cast<int>(type), uv_handle_type_name(type), how);
}

/// False, with a log line, for a handle that an earlier command has closed.
bool isOpen(const char* function, const uv_handle_t* handle) noexcept {
  if (uv_is_closing(handle) == 0) return true;
  logDoubleClose(function, handle, "already closed or closing");
  return false;
}

void logDrained(const Loop& loop, int refCount) noexcept {
  ZAL_LOG_AS(ZAL_LOG_TRACE, kExecutor, "%s: Event Loop (%s) refCount: %d\n", kExecutor, nameOf(loop), refCount);
}

// --- one function a command type ---

void executeStartTimer(Loop& loop, const Command& command) noexcept ZAL_REQUIRES(loop.queueLock) {
  auto* timer = handleAs<uv_timer_t>(command);
  timer->data = command.context;
  static_cast<void>(uv_timer_init(loop.loop, timer));  // always 0
  ++loop.refCount;
  // libuv's clock stands still while the loop does not run or is busy; the first expiry would come too early.
  uv_update_time(loop.loop);
  static_cast<void>(uv_timer_start(timer, command.timerCallback, command.timeout, command.repeat));  // callback is set
}

void executeStopTimer(Loop& loop, const Command& command) noexcept ZAL_REQUIRES(loop.queueLock) {
  if (!isOpen(kExecutor, command.handle)) return;
  static_cast<void>(uv_timer_stop(handleAs<uv_timer_t>(command)));  // always 0
  uv_close(command.handle, close_cb);
  --loop.refCount;
}

/// A poll that libuv refused stays zeroed, by which its stop knows that there is nothing to close.
void executeStartPoll(Loop& loop, const Command& command) noexcept ZAL_REQUIRES(loop.queueLock) {
  auto* poll = handleAs<uv_poll_t>(command);
  const bool isInitialised = uv_poll_init(loop.loop, poll, command.fd) == 0;
  if (!isInitialised) *poll = uv_poll_t{};
  poll->data = command.context;
  ++loop.refCount;
  if (!isInitialised || uv_poll_start(poll, UV_READABLE, command.pollCallback) != 0)
    ZAL_LOG_AS(ZAL_LOG_ERROR, kExecutor, "Invalid fd value passed to StartPoll\n");
}

void executeStopPoll(Loop& loop, const Command& command) noexcept ZAL_REQUIRES(loop.queueLock) {
  auto* poll = handleAs<uv_poll_t>(command);
  if (uv_handle_get_type(command.handle) == UV_UNKNOWN_HANDLE) {
    std::free(poll);
  } else {
    if (!isOpen(kExecutor, command.handle)) return;
    static_cast<void>(uv_poll_stop(poll));  // always 0
    uv_close(command.handle, close_cb);
  }
  --loop.refCount;
}

void executeClose(Loop& /*loop*/, const Command& command) noexcept {
  if (isOpen(kExecutor, command.handle)) uv_close(command.handle, command.closeCallback);
}

void executeWork(Loop& loop, const Command& command) noexcept {
  const int result = submitWork(loop, command.work, command.workCallback);
  if (result == 0) return;
  std::free(command.work);
  ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_EventLoop_Work", "Unable to queue a worker job: %s\n", uv_strerror(result));
}

void executeInitAsync(Loop& loop, const Command& command) noexcept {
  installAsync(loop, command.asyncCallback, command.context);
}

using Execute = void (*)(Loop&, const Command&) noexcept;

/// Indexed by command type, from 1.
constexpr Execute kExecute[] = {executeStartTimer, executeStopTimer, executeStartPoll, executeStopPoll,
                                executeClose,      executeWork,      executeInitAsync};
static_assert(std::size(kExecute) == ZAL_EVENTLOOP_CMD_INIT_ASYNC);

CommandPtr unlinkHeadLocked(Loop& loop) noexcept ZAL_REQUIRES(loop.queueLock) {
  CommandPtr head{loop.queueHead};
  if (!head) return head;
  loop.queueHead = head->next;
  ZAL_INVARIANT(loop.queueHead != nullptr || loop.queueTail == head.get());
  if (loop.queueHead == nullptr) loop.queueTail = nullptr;
  if (head->type == ZAL_EVENTLOOP_CMD_CLOSE) loop.queuedCloses.remove(*head);
  return head;
}

}  // namespace

void CommandDelete::operator()(Command* command) const noexcept {
  delete command;
}

CommandPtr makeCommand(CommandType type, uv_handle_t* handle, const char* function) noexcept {
  CommandPtr command{new (std::nothrow) Command{}};
  if (!command) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Unable to allocate memory for an event loop command\n");
    return command;
  }
  command->type = type;
  command->handle = handle;
  return command;
}

void appendLocked(Loop& loop, CommandPtr command) noexcept {
  Command* const added = command.release();
  ZAL_INVARIANT(added->next == nullptr && (loop.queueHead == nullptr) == (loop.queueTail == nullptr));
  (loop.queueTail != nullptr ? loop.queueTail->next : loop.queueHead) = added;
  loop.queueTail = added;
  // Sent under the lock: the thread that leaves the loop changes the phase under it, so the async is still open.
  if (loop.phase.load() == Phase::kRunning) static_cast<void>(uv_async_send(&loop.commandAsync));
}

void drainLocked(Loop& loop) noexcept {
  ZAL_INVARIANT(mayCallLibuv(loop));
  while (const CommandPtr command = unlinkHeadLocked(loop)) kExecute[command->type - 1](loop, *command);
}

void enqueue(Loop& loop, CommandPtr command) noexcept {
  int refCount = 0;
  {
    const LockGuard hold{loop.queueLock};
    appendLocked(loop, std::move(command));
    if (loop.phase.load() != Phase::kResting) return;
    drainLocked(loop);  // in the same hold, so that no run can begin in between
    refCount = loop.refCount;
  }
  logDrained(loop, refCount);
}

void closeHandle(Loop& loop, uv_handle_t* handle, uv_close_cb callback, CommandPtr command) noexcept {
  constexpr char kCaller[] = "ZAL_EventLoop_CloseHandle";
  command->handle = handle;
  command->closeCallback = callback;

  const LockGuard hold{loop.queueLock};
  if (!isOpen(kCaller, handle)) return;
  if (loop.queuedCloses.find(handle) != nullptr)
    return logDoubleClose(kCaller, handle, "previously queued for closing");
  loop.queuedCloses.add(*command);
  appendLocked(loop, std::move(command));
}

void onWake(uv_async_t* async) noexcept {
  if (async == nullptr) return;
  auto& loop = *static_cast<Loop*>(async->data);
  ZAL_INVARIANT(async == &loop.commandAsync && isLoopThread(&loop));
  ZAL_EventLoop_ExecuteCommands(&loop);
  const bool isToStop = [&] {
    const LockGuard hold{loop.queueLock};
    return loop.stopRequested;
  }();
  if (isToStop) leaveSoon(loop);
}

}  // namespace zal::eventloop

zal::ReservedClose zal::reserveClose() noexcept {
  return eventloop::makeCommand(eventloop::ZAL_EVENTLOOP_CMD_CLOSE, nullptr, "ZAL_EventLoop_CloseHandle");
}

void zal::closeHandle(ZAL_EventLoopContext loop, uv_handle_t* handle, uv_close_cb callback,
                      ReservedClose reserved) noexcept {
  eventloop::closeHandle(*loop, handle, callback, std::move(reserved));
}

void ZAL_EventLoop_ExecuteCommands(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr) return;
  int refCount = 0;
  {
    const zal::LockGuard hold{loop->queueLock};
    zal::eventloop::drainLocked(*loop);
    refCount = loop->refCount;
  }
  zal::eventloop::logDrained(*loop, refCount);
}
