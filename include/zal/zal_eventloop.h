/* The event loop: a named libuv loop with its own thread, a command queue for other threads, and its handles.
 *
 * A loop is created, run, stopped, perhaps run again, and destroyed. The "loop thread" below is the thread that runs
 * it: a thread of its own, or, for libuv's default loop, the one that called ZAL_EventLoop_Run. Callbacks of timers,
 * polls, the async, the idle handle and of closing run on the loop thread, those of jobs and file watches on a worker,
 * a thread of libuv's pool. No lock of the library is held meanwhile, so a callback may call any function here.
 *
 * The loop thread runs with SIGPIPE blocked, so that a peer that closes its socket does not end the program; the
 * process's disposition stays as it is. Workers keep the mask of the thread that called ZAL_EventLoop_Run. A thread or
 * program that a callback starts from the loop thread inherits the blocked signal: start it from a worker.
 *
 * Stop every loop before the process calls exit(), or leave with _exit(): libuv takes its worker pool down at exit, and
 * a loop that hands over a job at that moment ends the process by a signal.
 *
 * Null loops, handles and callbacks are refused: a log line where one is named, a null or negative result, no effect.
 */
#ifndef ZAL_EVENTLOOP_H
#define ZAL_EVENTLOOP_H

#include <stdint.h>
#include <uv.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A loop record. */
typedef struct ZAL_EventLoopContext_* ZAL_EventLoopContext;
/** A file watch. */
typedef struct ZAL_EventLoopFsWatch_* ZAL_EventLoopFsWatch;

/**
 * Receives one inotify event of a watched path: the name it carries, empty when it carries none, and its mask.
 *
 * Ownership: `name` is valid until the callback returns.
 * Threads:   the watch's worker, never the loop thread. It may stop its own watch.
 */
typedef void (*ZAL_EventLoopFsCallback)(ZAL_EventLoopFsWatch watch, const char* name, uint32_t mask);

/**
 * Makes a loop that does not run yet, or, with a non-zero flag, gives a share in the one record of libuv's default
 * loop.
 *
 * Ownership: the caller owns the loop, or one share of it, and gives it back with ZAL_EventLoop_Destroy. `name` is
 *            borrowed until then; a shared record keeps the name of its first creator. It may be null.
 * Threads:   any thread. While the last share of the default loop is being destroyed, a creator waits for the end of
 *            that, and so must not be one of the callbacks that run there.
 * Errors:    logged at level 5.
 *
 * @return the loop, or null
 */
ZAL_EXPORT ZAL_EventLoopContext ZAL_EventLoop_Create(int useDefaultLoop, const char* name) ZAL_NOEXCEPT;

/**
 * Runs the loop: on a new thread, named after it when the name has 15 characters at most, and returns at once. The
 * default loop runs on the calling thread, which gets the name too; then this returns when the loop has been stopped.
 *
 * A stopped loop may be run again; what was started on it goes on. If its last run is still ending, this waits for it.
 *
 * Threads:   any thread.
 * Errors:    a loop that runs already, also when called on its own thread, or a thread that cannot be made: logged at
 *            level 5, and nothing has changed.
 */
ZAL_EXPORT void ZAL_EventLoop_Run(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/**
 * Stops a running loop and its idle handle; a loop that does not run is left alone.
 *
 * On return the loop thread has ended, and what was asked to be closed before has been closed, callbacks included.
 * Timers and polls stay started and go on in the next run. Jobs in progress are not waited for. Of the default loop the
 * end is only requested: ZAL_EventLoop_Run returns in its own thread.
 *
 * Threads:   any thread; of several that stop a loop at once, each returns when it has ended. On the loop thread itself
 *            it takes effect after the present callback, nothing is waited for, and the thread is joined by the next
 *            run, stop or destroy of another thread.
 */
ZAL_EXPORT void ZAL_EventLoop_Stop(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/**
 * Gives back a loop, or one share in the default loop. The last one executes what is still queued, closes every handle
 * (with a line at level 5 for each that was forgotten), waits for its jobs, and frees the loop.
 *
 * Threads:   any thread but the loop's own, which is refused with a line at level 5, and but its jobs, which would wait
 *            for themselves. Stop the loop first; one that still runs is stopped here. Callbacks of closing run on the
 *            calling thread. No other thread may use the loop meanwhile, save its jobs and file watches, which end.
 * Ownership: the loop is gone on return, unless it was refused. Handles other than timers, polls and file-system events
 *            stay the caller's, but must live until then; a timer or poll must have been started through this header.
 */
ZAL_EXPORT void ZAL_EventLoop_Destroy(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/**
 * Closes a libuv handle of the loop on the loop thread. The request waits until the loop runs or is destroyed. A handle
 * that is closing, or has been asked to, is not closed twice: that is logged at level 5.
 *
 * Ownership: the handle's memory stays the caller's, and must live until the callback, which may be null.
 * Threads:   any thread.
 * Errors:    no memory: logged at level 5, the handle stays open.
 */
ZAL_EXPORT void ZAL_EventLoop_CloseHandle(ZAL_EventLoopContext loop, uv_handle_t* handle,
                                          uv_close_cb callback) ZAL_NOEXCEPT;

/** Gives the libuv loop, for handles of the caller's own; owned by the record. Any thread; but what libuv does with it
 *  belongs on the loop thread, or before the loop runs. */
ZAL_EXPORT uv_loop_t* ZAL_EventLoop_GetLoop(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/**
 * Has `callback` called on a worker, once, with a request whose `data` is the given pointer.
 *
 * Ownership: `data` stays the caller's; the request is freed by the loop after the callback.
 * Threads:   any thread. From another one than a running loop's own, the job reaches the pool through the loop thread.
 *            The jobs of a stopped loop run too; their requests are freed when it runs again or is destroyed.
 * Errors:    a request that libuv refuses later, on the loop thread, is logged at level 5 and never called back.
 *
 * @return 0, or a negative libuv error: UV_EINVAL for a null loop or callback, UV_ENOMEM, UV_EAGAIN when the process
 * has no threads for the pool, or what uv_queue_work says
 */
ZAL_EXPORT int ZAL_EventLoop_Work(ZAL_EventLoopContext loop, uv_work_cb callback, void* data) ZAL_NOEXCEPT;

/** Frees the request of a finished job; null is ignored. The loop's own after-work callback, on the loop thread. */
ZAL_EXPORT void uvAfterWork(uv_work_t* request, int status) ZAL_NOEXCEPT;

/**
 * Starts a timer: it fires once after `timeoutMs`, and then every `repeatMs`, unless that is 0.
 *
 * On a loop that does not run the time counts from now; a timer that is due when the loop runs fires then.
 *
 * Ownership: the loop owns the timer, also after its last expiry; the caller keeps the pointer for
 *            ZAL_EventLoop_StopTimer. `context` is borrowed until then.
 * Threads:   any thread; the callback runs on the loop thread.
 * Errors:    logged at level 5.
 *
 * @return the timer, before it has been started, or null when memory runs out
 */
ZAL_EXPORT uv_timer_t* ZAL_EventLoop_StartTimer(ZAL_EventLoopContext loop, uv_timer_cb callback, uint64_t timeoutMs,
                                                uint64_t repeatMs, void* context) ZAL_NOEXCEPT;

/**
 * Stops and frees a timer of this loop.
 *
 * Ownership: the timer is the loop's to free: not to be used again, and not to be stopped twice.
 * Threads:   any thread. Stopped on the loop thread it never fires again; stopped elsewhere it can still fire until the
 *            loop thread has taken up the request, and a callback that has begun is not waited for.
 * Errors:    a null timer, or no memory: logged at level 5, nothing is stopped.
 */
ZAL_EXPORT void ZAL_EventLoop_StopTimer(ZAL_EventLoopContext loop, uv_timer_t* timer) ZAL_NOEXCEPT;

/** Sets the interval of a timer from its next expiry on. Loop thread, or before the loop runs. (uv_timer_set_repeat) */
ZAL_EXPORT void ZAL_EventLoop_UpdateTimer(uv_timer_t* timer, uint64_t repeatMs) ZAL_NOEXCEPT;

/** Gives the context that a timer was started with; null for null. Like its three siblings it reads the first field of
 *  any libuv handle or request. In its callbacks. */
ZAL_EXPORT void* ZAL_EventLoop_GetTimerContext(const void* handle) ZAL_NOEXCEPT;

/**
 * Has `callback` called whenever the descriptor is readable.
 *
 * Ownership: as for ZAL_EventLoop_StartTimer. The descriptor stays the caller's, is made non-blocking, and must stay
 *            open until the poll has been stopped: at once on the loop thread, else when that has taken up the stop.
 * Threads:   any thread; the callback runs on the loop thread.
 * Errors:    a descriptor that libuv refuses is logged at level 5 on the loop thread; the poll never calls back, and is
 *            stopped like any other.
 *
 * @return the poll, before it has been started, or null when memory runs out
 */
ZAL_EXPORT uv_poll_t* ZAL_EventLoop_StartPoll(ZAL_EventLoopContext loop, uv_poll_cb callback, int descriptor,
                                              void* context) ZAL_NOEXCEPT;

/** Stops and frees a poll of this loop; see ZAL_EventLoop_StopTimer. Any thread. */
ZAL_EXPORT void ZAL_EventLoop_StopPoll(ZAL_EventLoopContext loop, uv_poll_t* poll) ZAL_NOEXCEPT;

/** Gives the context that a poll was started with; null for null. */
ZAL_EXPORT void* ZAL_EventLoop_GetPollContext(const void* handle) ZAL_NOEXCEPT;

/**
 * Watches a file or directory for the inotify events of `mask`. The watch takes one thread of libuv's pool for its
 * whole life; the pool has four, unless the environment says otherwise (UV_THREADPOOL_SIZE).
 *
 * Ownership: the watch belongs to its worker. The pointer is good for one ZAL_EventLoop_StopFs, or until the loop is
 *            destroyed or the process exits, which end the watch too; each takes about a second at most.
 * Threads:   any thread.
 * Errors:    logged at level 5. A watch that cannot read its events tries again every second.
 * Source:    inotify(7)
 *
 * @return the watch, or null: no such path, no descriptor, no memory
 */
ZAL_EXPORT ZAL_EventLoopFsWatch ZAL_EventLoop_StartFs(ZAL_EventLoopContext loop, const char* path, uint32_t mask,
                                                      ZAL_EventLoopFsCallback callback) ZAL_NOEXCEPT;

/** Ends a watch, once: the worker takes notice within about a second, after callbacks in progress, and frees it. The
 *  loop is not looked at. Any thread. */
ZAL_EXPORT void ZAL_EventLoop_StopFs(ZAL_EventLoopContext loop, ZAL_EventLoopFsWatch watch) ZAL_NOEXCEPT;

/**
 * Installs the loop's one user async, by which other threads wake its callback; does nothing when there is one.
 *
 * Threads:   before the loop runs or on the loop thread. On another thread of a running loop it is installed by the
 * loop thread, a little later; until then ZAL_EventLoop_AsyncSend finds none. Ownership: `context` is borrowed until
 * the loop is destroyed.
 */
ZAL_EXPORT void ZAL_EventLoop_AsyncInit(ZAL_EventLoopContext loop, uv_async_cb callback, void* context) ZAL_NOEXCEPT;

/** Wakes the user async's callback on the loop thread; several calls may come as one. Without a user async that is
 *  logged at level 3. Any thread. */
ZAL_EXPORT void ZAL_EventLoop_AsyncSend(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/** Gives the context that the user async was installed with; null for null. */
ZAL_EXPORT void* ZAL_EventLoop_GetAsyncContext(const void* handle) ZAL_NOEXCEPT;

/**
 * Has `callback` called in every iteration of the next run, which then never sleeps; replaces the one before. Does
 * nothing while timers or polls are started. The stop of the loop ends it.
 *
 * Threads:   any thread, but before the loop runs: later it is refused with a line at level 5.
 * Ownership: `context` is borrowed until the loop has been stopped.
 */
ZAL_EXPORT void ZAL_EventLoop_IdleInit(ZAL_EventLoopContext loop, uv_idle_cb callback, void* context) ZAL_NOEXCEPT;

/** Gives the context that the idle handle was started with; null for null. */
ZAL_EXPORT void* ZAL_EventLoop_GetIdleContext(const void* handle) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
