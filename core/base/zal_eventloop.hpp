// What the rest of the library may know of the event loop beyond its public header. Nothing here is exported.
#pragma once

#include <zal/zal_eventloop.h>

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

/// True on the thread that runs the loop right now, or tears it down. Any thread; false for null.
[[nodiscard]] bool isLoopThread(const ZAL_EventLoopContext_* loop) noexcept;

}  // namespace zal
