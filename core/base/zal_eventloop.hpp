// What the rest of the library may know of the event loop beyond its public header. Nothing here is exported.
#pragma once

#include <zal/zal_eventloop.h>

#include <cstddef>
#include <cstdint>
#include <memory>

/// Executes and frees every queued command, in order, with the queue lock held. The loop thread, or the thread that
/// holds a loop that does not run. Null is ignored.
void ZAL_EventLoop_ExecuteCommands(ZAL_EventLoopContext loop) noexcept;

/// The close callback of everything that the loop closes by itself: frees timers, polls and file-system-event handles,
/// which must be malloc's, and leaves the memory of other handles alone. Loop thread.
void close_cb(uv_handle_t* handle) noexcept;

/// Visits one handle of a loop that is being destroyed and closes it, with a log line for a handle that its user
/// forgot.
void walk_cb(uv_handle_t* handle, void* context) noexcept;

namespace zal {

namespace eventloop {
struct ZAL_EventLoopCommand;
struct CommandDelete {
  void operator()(ZAL_EventLoopCommand* command) const noexcept;
};
}  // namespace eventloop

/// The memory that closing a handle takes.
using ReservedClose = std::unique_ptr<eventloop::ZAL_EventLoopCommand, eventloop::CommandDelete>;

/// Null, with a log line, when memory runs out.
[[nodiscard]] ReservedClose reserveClose() noexcept;
/// ZAL_EventLoop_CloseHandle with memory that was reserved, so that no memory is needed.
void closeHandle(ZAL_EventLoopContext loop, uv_handle_t* handle, uv_close_cb callback, ReservedClose reserved) noexcept;

/// ZAL_EventLoop_AsyncInit; false, with a log line, when there will be no user async.
[[nodiscard]] bool initUserAsync(ZAL_EventLoopContext loop, uv_async_cb callback, void* context) noexcept;

/// How many jobs can run at a time, as libuv reads it from the environment.
[[nodiscard]] std::size_t workerPoolSize() noexcept;

/// Whether the loop runs, or is about to. Any thread.
[[nodiscard]] bool isRunning(ZAL_EventLoopContext loop) noexcept;

/// For a timer of the caller's own: has it fire once, or not at all. No memory is needed. The loop thread, or any
/// thread while the loop does not run.
void startOwnTimer(ZAL_EventLoopContext loop, uv_timer_t& timer, uv_timer_cb callback,
                   std::uint64_t timeoutMs) noexcept;
void stopOwnTimer(ZAL_EventLoopContext loop, uv_timer_t& timer) noexcept;

/// True on the thread that runs the loop right now, or tears it down. Any thread; false for null.
[[nodiscard]] bool isLoopThread(const ZAL_EventLoopContext_* loop) noexcept;

}  // namespace zal
