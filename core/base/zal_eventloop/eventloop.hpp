// The records of the event loop and what its rooms call of each other: the life cycle (lifecycle.cpp), the shared
// record of libuv's default loop (default_loop.cpp), the command queue (commands.cpp), the handles (handles.cpp),
// worker jobs (work.cpp) and file watches (watch.cpp).
//
// Only uv_async_send is safe on any thread. Who may make the other libuv calls is told by the loop's phase: the thread
// that runs the loop, the thread that tears it down, or, on a resting loop, whoever holds the queue lock.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "base/zal_eventloop.hpp"
#include "support/descriptor.hpp"
#include "support/indexed_list.hpp"
#include "support/invariant.hpp"
#include "support/lock.hpp"

namespace zal::eventloop {

/// The bits of a loop's flags.
enum Flag : std::uint8_t { kUserAsyncInstalled = 1, kIdleStarted = 2, kRunning = 4 };

/// Who owns the libuv side of a loop. It outlives kRunning: a loop that was told to stop still runs until its thread
/// has left it.
enum class Phase : int {
  kResting = 0,  ///< nobody; whoever holds the queue lock may act on it
  kRunning = 1,  ///< the thread in uv_run; the others queue commands and wake it
  kClosing = 2,  ///< the thread in ZAL_EventLoop_Destroy; the others only queue commands
};

enum CommandType : int {
  ZAL_EVENTLOOP_CMD_START_TIMER = 1,
  ZAL_EVENTLOOP_CMD_STOP_TIMER = 2,
  ZAL_EVENTLOOP_CMD_START_POLL = 3,
  ZAL_EVENTLOOP_CMD_STOP_POLL = 4,
  ZAL_EVENTLOOP_CMD_CLOSE = 5,
  ZAL_EVENTLOOP_CMD_WORK = 6,
  ZAL_EVENTLOOP_CMD_INIT_ASYNC = 7,
};

/// One queued request, made by the requesting operation and freed by the executor.
struct ZAL_EventLoopCommand {
  uv_handle_t* handle = nullptr;
  int type = 0;
  std::uint64_t timeout = 0;  ///< milliseconds
  std::uint64_t repeat = 0;   ///< milliseconds, 0 for one shot
  int fd = -1;
  uv_timer_cb timerCallback = nullptr;
  uv_close_cb closeCallback = nullptr;
  uv_poll_cb pollCallback = nullptr;
  void* context = nullptr;
  ZAL_EventLoopCommand* next = nullptr;
  uv_work_t* work = nullptr;
  uv_work_cb workCallback = nullptr;
  uv_async_cb asyncCallback = nullptr;
  IndexLink<ZAL_EventLoopCommand> link{};  ///< close: in the index of the queued closes

  [[nodiscard]] const uv_handle_t* key() const noexcept { return handle; }
};

using Command = ZAL_EventLoopCommand;
using CommandPtr = ReservedClose;

}  // namespace zal::eventloop

struct ZAL_EventLoopContext_ {
  uv_loop_t* loop = nullptr;
  const char* name = nullptr;  ///< borrowed
  uv_thread_t thread ZAL_GUARDED_BY(lifeLock) = 0;
  uv_async_t commandAsync{};
  uv_async_t userAsync{};
  uv_async_cb userAsyncCallback = nullptr;
  uv_idle_t idle{};
  std::uint8_t isDefault = 0;
  int refCount ZAL_GUARDED_BY(queueLock) = 0;
  std::atomic<std::uint8_t> flags{0};
  zal::Mutex queueLock;
  zal::eventloop::Command* queueHead ZAL_GUARDED_BY(queueLock) = nullptr;
  zal::eventloop::Command* queueTail ZAL_GUARDED_BY(queueLock) = nullptr;
  zal::Index<zal::eventloop::Command> queuedCloses ZAL_GUARDED_BY(queueLock);  ///< by handle

  /// Held by a thread that starts or ends a run, also while it joins the loop thread. Before the queue lock, never
  /// after.
  zal::Mutex lifeLock;
  /// Written under the queue lock; an atomic so that the end of a run can be waited for.
  std::atomic<zal::eventloop::Phase> phase{zal::eventloop::Phase::kResting};
  /// The thread that runs the loop or tears it down, 0 when there is none. Each thread writes only its own id.
  std::atomic<pthread_t> runner{0};
  /// How the user async is sent. libuv's own way makes the woken thread spin until the sender's write has returned.
  std::optional<zal::Descriptor> asyncEvent;
  uv_poll_t asyncPoll{};
  std::atomic<bool> isAsyncSent{false};
  bool stopRequested ZAL_GUARDED_BY(queueLock) = false;
  bool commandAsyncReady ZAL_GUARDED_BY(queueLock) = false;
  bool idleReady ZAL_GUARDED_BY(queueLock) = false;
};

namespace zal::eventloop {

using Loop = ZAL_EventLoopContext_;

static_assert(sizeof(Mutex) == sizeof(ZAL_MutexHandle), "the queue lock stands in the record as a plain handle");

inline bool hasFlag(const Loop& loop, Flag flag) noexcept {
  return (loop.flags.load() & flag) != 0;
}
inline void setFlag(Loop& loop, Flag flag) noexcept {
  loop.flags.fetch_or(flag);
}
inline void clearFlag(Loop& loop, Flag flag) noexcept {
  loop.flags.fetch_and(static_cast<std::uint8_t>(~flag));
}
inline const char* nameOf(const Loop& loop) noexcept {
  return loop.name != nullptr ? loop.name : "(null)";
}
/// For invariants: nobody runs the loop or tears it down but, perhaps, this thread.
inline bool mayCallLibuv(const Loop& loop) noexcept {
  return loop.runner.load() == 0 || isLoopThread(&loop);
}
template <class Handle>
uv_handle_t* asHandle(Handle* handle) noexcept {
  return reinterpret_cast<uv_handle_t*>(handle);
}

// --- life cycle ---

/// A record without its libuv loop; null, with a log line, when memory runs out.
std::unique_ptr<Loop> newRecord(const char* name) noexcept;
Loop* createOwn(const char* name) noexcept;
void run(Loop& loop) noexcept;
void stop(Loop& loop) noexcept;

/// What becomes of a record that one of its users destroys.
enum class Release {
  kShared,   ///< other users remain
  kLast,     ///< it is the caller's to destroy
  kRefused,  ///< it cannot go on its own thread; nothing has changed
};

Release release(Loop& loop) noexcept;
/// Stops the loop if it still runs, closes what is left, and waits for its jobs. Not on the loop's own thread.
void destroy(std::unique_ptr<Loop> loop) noexcept;
/// On the loop thread: makes uv_run return after the present iteration and ends the idle handle.
void leaveSoon(Loop& loop) noexcept;

// --- libuv's default loop, one record for the whole process ---

Loop* shareDefault(const char* name) noexcept;
/// Takes one user off. The last one forgets the record and calls defaultClosed when it is destroyed.
Release releaseDefault(Loop& loop) noexcept;
/// The record is gone: libuv's default loop may be made anew.
void defaultClosed() noexcept;

// --- command queue ---

/// Null, with a log line that speaks for `function`, when memory runs out.
CommandPtr makeCommand(CommandType type, uv_handle_t* handle, const char* function) noexcept;
/// Appends the command and sees to its execution: the loop thread is woken, or the queue of a resting loop is drained.
void enqueue(Loop& loop, CommandPtr command) noexcept ZAL_EXCLUDES(loop.queueLock);
/// Appends the command and wakes the loop thread if there is one.
void appendLocked(Loop& loop, CommandPtr command) noexcept ZAL_REQUIRES(loop.queueLock);
void drainLocked(Loop& loop) noexcept ZAL_REQUIRES(loop.queueLock);
/// Queues a close; the command was made with makeCommand or reserved.
void closeHandle(Loop& loop, uv_handle_t* handle, uv_close_cb callback, CommandPtr command) noexcept;
/// The callback of the command async.
void onWake(uv_async_t* async) noexcept;

// --- handles ---

uv_timer_t* startTimer(Loop& loop, uv_timer_cb callback, std::uint64_t timeout, std::uint64_t repeat,
                       void* context) noexcept;
uv_poll_t* startPoll(Loop& loop, uv_poll_cb callback, int descriptor, void* context) noexcept;
void requestStop(Loop& loop, CommandType type, uv_handle_t* handle, const char* function) noexcept;
/// False, with a log line, when it fails here; on another thread than the loop's it may fail later.
[[nodiscard]] bool initAsync(Loop& loop, uv_async_cb callback, void* context) noexcept;
void initIdle(Loop& loop, uv_idle_cb callback, void* context) noexcept;
/// Makes the user async unless there is one; false, with a log line, when it cannot be made. Where libuv calls are
/// allowed.
bool installAsync(Loop& loop, uv_async_cb callback, void* context) noexcept;
/// Has the loop thread call the user async's callback, which must be installed. Any thread.
void sendAsync(Loop& loop) noexcept;
/// On the thread that closes the loop.
void closeAsyncPoll(Loop& loop) noexcept;

// --- worker jobs and file watches ---

/// 0, or a negative libuv error when the job will never run.
int queueWork(Loop& loop, uv_work_cb callback, void* data) noexcept;
/// Hands a request over to libuv's pool, which then owns it. Where libuv calls are allowed.
int submitWork(Loop& loop, uv_work_t* request, uv_work_cb callback) noexcept;

ZAL_EventLoopFsWatch startWatch(Loop& loop, const char* path, std::uint32_t mask,
                                ZAL_EventLoopFsCallback callback) noexcept;
void stopWatch(ZAL_EventLoopFsWatch watch) noexcept;

}  // namespace zal::eventloop
